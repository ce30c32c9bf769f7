#include "mtf/reader/compare.h"

#include <map>
#include <unordered_map>

#include "mtf/reader/content_reader.h"
#include "mtf/reader/earlier_media.h"
#include "mtf/reader/link_view.h"
#include "mtf/reader/tree_place.h"
#include "services/content_hash.h"

namespace MTF {
namespace {

// What is kept of an entry of the first job.
struct Known {
  Job_Entry entry;  // without its path
  bool met = false;
};

bool same_place(const Job_Entry& a, const Job_Entry& b) {
  return a.seq == b.seq && a.channel == b.channel && a.address == b.address;
}

bool same_owner(const Content& a, const Content& b) {
  if (a.stat.has_value() != b.stat.has_value()) return false;
  return !a.stat ||
         (a.stat->uid == b.stat->uid && a.stat->gid == b.stat->gid && a.stat->mode == b.stat->mode);
}

bool is_file_known(const Job_Entry& entry) {
  return entry.type != block_hlnk || entry.file;
}

// What both lead to, and which device they are of.
bool same_node(const Content& a, const Content& b) {
  return a.target == b.target &&
         (!a.stat || !b.stat ||
          (a.stat->rdev == b.stat->rdev && ((a.stat->mode ^ b.stat->mode) & mode_type_mask) == 0));
}

class Comparison {
 public:
  Comparison(IPiece_Store& store, const Job_Pieces& first, const Job_Pieces& second, bool quick,
             const std::function<void(const Job_Change&)>& on_change, unsigned long long& same,
             const Fault_Sink& on_fault)
      : store_(store),
        first_(first),
        second_(second),
        quick_(quick),
        on_change_(on_change),
        same_(same),
        on_fault_(on_fault) {}

  bool run();

 private:
  // The state of an entry as it is on its media.
  struct State {
    Content content;
    std::string digest;
  };

  void take(const Job_Entry& entry);
  static Job_Entry file_of(const Job_Entry& entry);
  bool is_linked_anew(const Job_Entry& before, const Job_Entry& after);
  Job_Change compare(const Job_Entry& before, const Job_Entry& after);
  bool read(const Job_Entry& entry, State& state);
  bool fault(const Job_Entry& entry, const std::string& text);

  IPiece_Store& store_;
  const Job_Pieces& first_;
  const Job_Pieces& second_;
  const bool quick_;
  const std::function<void(const Job_Change&)>& on_change_;
  unsigned long long& same_;
  const Fault_Sink& on_fault_;
  bool sound_ = true;
  std::unordered_map<std::size_t, Known> known_;  // by the hash of the path
  std::map<unsigned long long, Earlier_Media> medias_;
};

bool Comparison::run() {
  same_ = 0;
  const auto learn = [this](const Job_Entry& entry) {
    Known& known = known_[hash_of(entry.path)];
    known.entry = entry;
    known.entry.path = std::string();
  };
  const auto tell_removed = [this](const Job_Entry& entry) {
    if (!known_[hash_of(entry.path)].met) on_change_({Job_Change::Kind::removed, entry});
  };
  const Fault_Sink told_already;
  if (!list_job(store_, first_, learn, on_fault_)) sound_ = false;
  if (!list_job(
          store_, second_, [this](const Job_Entry& entry) { take(entry); }, on_fault_)) {
    sound_ = false;
  }
  list_job(store_, first_, tell_removed, told_already);
  return sound_;
}

void Comparison::take(const Job_Entry& entry) {
  const auto found = known_.find(hash_of(entry.path));
  if (found == known_.end()) return on_change_({Job_Change::Kind::added, entry});
  found->second.met = true;
  const Job_Entry& before = found->second.entry;
  if (before.type == entry.type && same_place(before, entry)) return void(++same_);
  Job_Change change = compare(file_of(before), file_of(entry));
  change.entry = entry;
  change.old_type = before.type;
  change.links = is_linked_anew(before, entry);
  // Of a further name whose file isn't known nothing else can be told.
  if (!is_file_known(before) || !is_file_known(entry)) change.type = false;
  change.type || change.content || change.attributes || change.links ? on_change_(change)
                                                                     : void(++same_);
}

// Of a further name the entry of its file.
Job_Entry Comparison::file_of(const Job_Entry& entry) {
  Job_Entry file = entry;
  if (!entry.file) return file;
  file.type = entry.file->type;
  file.size = entry.file->size;
  file.seq = entry.file->seq;
  file.address = entry.file->address;
  return file;
}

bool Comparison::is_linked_anew(const Job_Entry& before, const Job_Entry& after) {
  if (before.type != block_hlnk && after.type != block_hlnk) return false;
  if (before.type != after.type) return true;
  if (same_place(before, after)) return false;
  if (quick_) return before.size != after.size;  // the length of the first name's path
  State old_state, new_state;
  return !read(before, old_state) || !read(after, new_state) ||
         old_state.content.target != new_state.content.target;
}

Job_Change Comparison::compare(const Job_Entry& before, const Job_Entry& after) {
  Job_Change change{Job_Change::Kind::changed, after};
  change.type = before.type != after.type;
  if (change.type || same_place(before, after) || after.type == block_volb) return change;
  const bool file = after.type != block_dirb;
  const bool dated = before.dated == after.dated && before.mtime == after.mtime;
  change.content = file && (before.size != after.size || (quick_ && !dated));
  change.attributes = file && !dated;
  if (quick_) return change;
  State old_state, new_state;
  if (!read(before, old_state) || !read(after, new_state)) {
    change.content = true;
    return change;
  }
  if (file && (old_state.digest != new_state.digest ||
               (after.type != block_file && !same_node(old_state.content, new_state.content)))) {
    change.content = true;
  }
  if (!same_owner(old_state.content, new_state.content) ||
      old_state.content.attributes != new_state.content.attributes) {
    change.attributes = true;
  }
  return change;
}

bool Comparison::read(const Job_Entry& entry, State& state) {
  Earlier_Media& medias =
      medias_.try_emplace(entry.channel, store_, first_.stem, entry.channel).first->second;
  std::string why;
  Media_File* media = medias.find(entry.seq, why);
  Media_Block block;
  if (media == nullptr || !media->find_block(entry.address, entry.type, block, why)) {
    return fault(entry, why);
  }
  Content_Hash hash;
  unsigned long long next = 0;
  const Content_Sink sink = [&](unsigned long long offset, const char* data, std::size_t size) {
    if (offset != next) hash.add(reinterpret_cast<const char*>(&offset), sizeof offset);
    next = offset + size;
    hash.add(data, size);
    return true;
  };
  if (!Content_Reader(*media, sink).read(block, state.content, why)) return fault(entry, why);
  state.digest = hash.value();
  return true;
}

bool Comparison::fault(const Job_Entry& entry, const std::string& text) {
  sound_ = false;
  const std::string piece = medias_.at(entry.channel).name(entry.seq);
  if (on_fault_) on_fault_({piece, 0, "entry at " + std::to_string(entry.address) + ": " + text});
  return false;
}

}  // namespace

bool compare_jobs(IPiece_Store& store, const Job_Pieces& first, const Job_Pieces& second,
                  bool quick, const std::function<void(const Job_Change&)>& on_change,
                  unsigned long long& same, const Fault_Sink& on_fault) {
  return Comparison(store, first, second, quick, on_change, same, on_fault).run();
}

}  // namespace MTF
