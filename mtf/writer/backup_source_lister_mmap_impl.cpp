#include "mtf/writer/backup_source_lister_mmap_impl.h"

#include <ace/Guard_T.h>
#include <ace/Log_Msg.h>
#include <ace/OS_NS_errno.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>

#include "mtf/writer/file_type.h"
#include "oxbase/name_finder.h"
#include "oxbase/path.h"
#include "oxbase/path_conf.h"
#include "services/working_path.h"

namespace MTF {
namespace {

static_assert(std::is_trivially_destructible_v<Cache_Node>, "the pool goes without a word to them");

constexpr unsigned short cache_dir_mode = 0750;
constexpr unsigned long long piece_size = 1ULL << 16;
constexpr unsigned long long node_alignment = alignof(Cache_Node);

std::atomic<unsigned long long> last_id{0};

// What a thread keeps of the store that it works for, so that an entry mostly needs no lock.
struct Walker {
  unsigned long long store = 0;  // all below is of the store with this id
  // Path and record of the directory that the thread walks; null between two.
  std::pair<const std::string, Backup_Source_Lister_MMap_Impl::Directory>* walked = nullptr;
  unsigned long long removals = 0;  // of the store when `walked` was looked up
  char* piece = nullptr;            // where the next node goes
  unsigned long long left = 0;      // bytes left at `piece`
};
static_assert(std::is_trivially_destructible_v<Walker>,
              "what else a thread has to destroy takes memory that it can't do without");

Walker& walker_of(unsigned long long store) {
  thread_local Walker walker;
  if (walker.store != store) {
    walker = Walker();
    walker.store = store;
  }
  return walker;
}

// Empty, with errno, where the directory can't be made or isn't the user's own.
std::string usable(const std::string& cache_dir) {
  if (!make_job_tmp_dir(cache_dir)) return {};
  return oxbase::Path_Conf(cache_dir.c_str(), true, nullptr, cache_dir_mode).str();
}

void fill(Cache_Node& node, const Backup_Source_Lister::Entry& entry, const std::string& name) {
  node.stat = entry.stat;
  node.reparse_type = entry.reparse_type;
  node.set_name(name);
}

// A directory that changes while it is read may give a name twice.
bool has_same_name(const Cache_Node* a, const Cache_Node* b) {
  return std::strcmp(a->name(), b->name()) == 0;
}

// What stands behind the last separator of a directory's path.
std::string_view leaf_of(const Cache_Node* directory) {
  const char* const separator = std::strrchr(directory->name(), '\\');
  return separator == nullptr ? directory->name() : separator + 1;
}

// A directory that changes while it is read may give a name twice, once as that of a directory.
void drop_names_of_directories(std::list<Cache_Node*>& files,
                               const std::list<Cache_Node*>& directories) {
  if (directories.empty()) return;
  oxbase::Name_Finder is_directory(directories.begin(), directories.end(), leaf_of);
  files.remove_if([&](const Cache_Node* file) { return is_directory(file->name()); });
}

}  // namespace

void Cache_Node::set_name(const std::string& text) {
  std::memcpy(this + 1, text.c_str(), text.size() + 1);
}

bool node_less(const Cache_Node* a, const Cache_Node* b) {
  return a != nullptr && b != nullptr && oxbase::path_less(a->name(), b->name());
}

Backup_Source_Lister_MMap_Impl::Backup_Source_Lister_MMap_Impl(const std::string& cache_dir,
                                                               std::size_t most_ahead)
    : most_ahead_(most_ahead), pool_(usable(cache_dir)), id_(++last_id) {}

bool Backup_Source_Lister_MMap_Impl::add_source(const source_entry& source) {
  const unsigned long long size = Cache_Node::node_size(source.path.size());
  Cache_Node* const node = make_node(size);
  if (node == nullptr) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to make source node, size=%B.\n"),
                      static_cast<std::size_t>(size)),
                     false);
  }
  node->stat = source.stat;
  node->is_source = 1;
  node->set_name(source.path);
  pending_.push_back(node);
  if (is_directory(node->stat)) {
    walk_queue_.insert(node);
    directories_[source.path].node = node;
  }
  return true;
}

Cache_Node* Backup_Source_Lister_MMap_Impl::make_node(unsigned long long size) {
  const unsigned long long rounded = (size + node_alignment - 1) / node_alignment * node_alignment;
  Walker& walker = walker_of(id_);
  if (walker.left < rounded && !take_piece(rounded)) return nullptr;
  void* const memory = walker.piece;
  walker.piece += rounded;
  walker.left -= rounded;
  return new (memory) Cache_Node;
}

// Near the end of the disk a node may still fit where a whole piece doesn't.
bool Backup_Source_Lister_MMap_Impl::take_piece(unsigned long long size) {
  unsigned long long taken = std::max(size, piece_size);
  ACE_GUARD_RETURN(ACE_Thread_Mutex, guard, lock_, false);
  void* memory = pool_.calloc(taken);
  if (memory == nullptr && taken > size) memory = pool_.calloc(taken = size);
  if (memory == nullptr) return false;
  Walker& walker = walker_of(id_);
  walker.piece = static_cast<char*>(memory);
  walker.left = taken;
  return true;
}

Backup_Source_Lister_MMap_Impl::Directory* Backup_Source_Lister_MMap_Impl::get_directory_i(
    const std::string& dir) {
  ACE_GUARD_RETURN(ACE_Thread_Mutex, guard, lock_, nullptr);
  const auto found = directories_.find(dir);
  return found != directories_.end() ? &found->second : nullptr;
}

// A walker has the record of its directory at hand.
Backup_Source_Lister_MMap_Impl::Directory* Backup_Source_Lister_MMap_Impl::find_directory(
    const std::string& dir) {
  const Walker& walker = walker_of(id_);
  const bool at_hand =
      walker.walked != nullptr && walker.removals == removals_ && walker.walked->first == dir;
  return at_hand ? &walker.walked->second : get_directory_i(dir);
}

void Backup_Source_Lister_MMap_Impl::remove_directory(const std::string& dir) {
  ACE_GUARD(ACE_Thread_Mutex, guard, lock_);
  const auto found = directories_.find(dir);
  if (found == directories_.end()) return;
  ++removals_;
  directories_.erase(found);
}

int Backup_Source_Lister_MMap_Impl::add_entry(const std::string& dir, const Entry& entry) {
  return entry.is_directory() ? add_sub_directory(dir, entry) : add_file(dir, entry);
}

int Backup_Source_Lister_MMap_Impl::add_file(const std::string& dir, const Entry& entry) {
  Directory* const directory = find_directory(dir);
  if (directory == nullptr) return -1;
  Cache_Node* const node = make_node(Cache_Node::node_size(entry.name.size()));
  if (node == nullptr) return -1;
  fill(*node, entry, entry.name);
  directory->files.push_back(node);
  return 1;
}

int Backup_Source_Lister_MMap_Impl::add_sub_directory(const std::string& dir, const Entry& entry) {
  Directory* const directory = find_directory(dir);
  if (directory == nullptr) return -1;
  oxbase::Path_T<char> full('\\', false);
  full /= dir;
  full /= entry.name;
  Cache_Node* const node = make_node(Cache_Node::node_size(full.str().size()));
  if (node == nullptr) return -1;
  fill(*node, entry, full.str());
  {
    ACE_GUARD_RETURN(ACE_Thread_Mutex, guard, lock_, -1);
    const auto [place, fresh] = directories_.try_emplace(full.str());
    // A directory that changes while it is read may give a name twice; two walkers must not meet in
    // one record.
    if (!fresh) return 0;
    directory->child_dirs.push_back(node);
    place->second.node = node;
    walk_queue_.insert(node);
  }
  directory_ready_.signal();
  return 0;
}

int Backup_Source_Lister_MMap_Impl::next_directory(std::string& dir) {
  try {
    return take_directory(dir);
  } catch (const std::bad_alloc&) {
    ACE_GUARD_RETURN(ACE_Thread_Mutex, guard, lock_, -1);
    broken_ = true;
    directory_ready_.broadcast();
    entry_ready_.broadcast();
    errno = ENOMEM;
    return -1;
  }
}

int Backup_Source_Lister_MMap_Impl::take_directory(std::string& dir) {
  ACE_GUARD_RETURN(ACE_Thread_Mutex, guard, lock_, -1);
  while (is_far_ahead()) {
    if (directory_ready_.wait() == -1) return -1;
  }
  if (dequeue_sub_directory(dir) == Backup_Source_Lister::found) return Backup_Source_Lister::found;
  if (walkers_ == 0) {
    while (enqueue_one(true) != none_pending) {
    }
    guard.release();
    directory_ready_.broadcast();
    entry_ready_.broadcast();
    return Backup_Source_Lister::at_end;
  }
  while (walk_queue_.empty() && walkers_ > 0 && !broken_) {
    if (directory_ready_.wait() == -1) return -1;
  }
  if (broken_) {
    errno = ENOMEM;
    return -1;
  }
  return dequeue_sub_directory(dir);
}

// A reader who waits gets what he waits for from nobody but a walker.
bool Backup_Source_Lister_MMap_Impl::is_far_ahead() const {
  return ahead_ > most_ahead_ && !reader_waits_ && !broken_;
}

int Backup_Source_Lister_MMap_Impl::dequeue_sub_directory(std::string& dir) {
  while (!walk_queue_.empty()) {
    const auto first = walk_queue_.begin();
    Cache_Node* const node = *first;
    // Before anything changes, as it may run out of memory.
    if (node != nullptr) dir = node->name();
    walk_queue_.erase(first);
    const auto found = node != nullptr ? directories_.find(dir) : directories_.end();
    if (found == directories_.end()) continue;
    walker_of(id_).walked = &*found;
    walker_of(id_).removals = removals_;
    found->second.state = being_walked;
    ++walkers_;
    return Backup_Source_Lister::found;
  }
  return Backup_Source_Lister::at_end;
}

bool Backup_Source_Lister_MMap_Impl::walk_end(const std::string& dir, bool ok) {
  Directory* const directory = ok ? find_directory(dir) : nullptr;
  walker_of(id_).walked = nullptr;
  if (directory != nullptr) {
    directory->files.sort(node_less);
    directory->files.unique(has_same_name);
    directory->child_dirs.sort(node_less);
    drop_names_of_directories(directory->files, directory->child_dirs);
  } else {
    remove_directory(dir);
  }
  int step;
  {
    ACE_GUARD_RETURN(ACE_Thread_Mutex, guard, lock_, false);
    // A thread that sees this state under the lock also sees the sorted lists.
    if (directory != nullptr) {
      directory->state = walked;
      ahead_ += directory->files.size() + 1;
    }
    --walkers_;
    step = enqueue_one(false);
  }
  if (step == moved) entry_ready_.signal();
  return true;
}

int Backup_Source_Lister_MMap_Impl::enqueue_one(bool force) {
  if (pending_.empty()) return none_pending;
  const Cache_Node* const head = pending_.front();
  if (head != nullptr && !is_directory(head->stat)) {
    ready_.splice(ready_.end(), pending_, pending_.begin());
    return moved;
  }
  const auto found =
      head != nullptr ? directories_.find(std::string_view(head->name())) : directories_.end();
  if (found == directories_.end()) {
    pending_.pop_front();
    return dropped;
  }
  if (!force && found->second.state != walked) return head_waits;
  list_head(found->second);
  if (found->second.state != walked) ++removals_;
  directories_.erase(found);
  return moved;
}

// Only links of lists move, so that memory can't run short here.
void Backup_Source_Lister_MMap_Impl::list_head(Directory& directory) {
  if (directory.node != nullptr) {
    pending_.front() = directory.node;
    ready_.splice(ready_.end(), pending_, pending_.begin());
  } else {
    pending_.pop_front();
  }
  ready_.splice(ready_.end(), directory.files);
  pending_.splice(pending_.begin(), directory.child_dirs);
}

int Backup_Source_Lister_MMap_Impl::next_entry(std::string& dir, Entry& entry, bool& is_source) {
  if (taken_.empty()) {
    const int result = take_ready();
    if (result != Backup_Source_Lister::found) return result;
  }
  const Cache_Node* const node = taken_.front();
  taken_.pop_front();
  if (node != nullptr) {
    give(*node, dir, entry, is_source);
    count_given(entry);
    return Backup_Source_Lister::found;
  }
  dir.clear();
  entry.name.clear();
  is_source = false;
  ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Null node found in ready queue.\n")),
                   Backup_Source_Lister::found);
}

// Takes all that is ready at once: the walkers need the lock more than the reader.
int Backup_Source_Lister_MMap_Impl::take_ready() {
  ACE_GUARD_RETURN(ACE_Thread_Mutex, guard, lock_, -1);
  while (ready_.empty()) {
    if (pending_.empty()) return Backup_Source_Lister::at_end;
    if (broken_) {
      errno = ENOMEM;
      return -1;
    }
    reader_waits_ = true;
    if (ahead_ > most_ahead_) directory_ready_.broadcast();
    if (entry_ready_.wait() == -1) return -1;
  }
  reader_waits_ = false;
  taken_.swap(ready_);
  if (ahead_ > most_ahead_) directory_ready_.broadcast();
  ahead_ -= std::min(ahead_, taken_.size());
  return Backup_Source_Lister::found;
}

void Backup_Source_Lister_MMap_Impl::end_reading() {
  ACE_GUARD(ACE_Thread_Mutex, guard, lock_);
  reader_waits_ = true;
  directory_ready_.broadcast();
}

// Records that were given aren't touched again, and the others can wait in the file.
void Backup_Source_Lister_MMap_Impl::count_given(const Entry& given) {
  given_ += Cache_Node::node_size(given.name.size());
  if (given_ < MMap_Pool::unload_step) return;
  given_ = 0;
  ACE_GUARD(ACE_Thread_Mutex, guard, lock_);
  pool_.unload();
}

void Backup_Source_Lister_MMap_Impl::give(const Cache_Node& node, std::string& dir, Entry& entry,
                                          bool& is_source) {
  entry.stat = node.stat;
  entry.reparse_type = node.reparse_type;
  is_source = node.is_source != 0;
  if (is_source) {
    dir = node.name();
    entry.name = node.name();
  } else if (is_directory(node.stat)) {
    dir = oxbase::dirname_string(node.name(), '\\');
    entry.name = oxbase::basename(node.name(), '\\');
  } else {
    dir = last_dir_;
    entry.name = node.name();
  }
  if (is_directory(node.stat)) last_dir_ = node.name();
}

}  // namespace MTF
