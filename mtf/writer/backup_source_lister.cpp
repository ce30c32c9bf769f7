#include "mtf/writer/backup_source_lister.h"

#include <ace/Log_Msg.h>
#include <ace/OS_NS_errno.h>

#include <utility>

#include "services/file_path.h"
#include "services/no_throw.h"
#include "services/thread_log.h"

namespace MTF {
namespace {

constexpr int no_thread_flags = 0;
constexpr char path_separator = '\\';

// What `step` returns, or the errno for the exception that left it.
template <class Step>
int error_of(Step step) {
  constexpr int thrown = -1;
  const int result = no_throw("Scanning", thrown, step);
  return result != thrown ? result : errno;
}

std::string with_separator(const std::string& path) {
  return path.empty() || path.back() == path_separator ? path : path + path_separator;
}

}  // namespace

Backup_Source_Lister::Backup_Source_Lister(std::unique_ptr<Impl> impl, int threads, Filter filter,
                                           On_Error on_error, Map_Path map_path, Named_In named_in)
    : impl_(std::move(impl)),
      threads_(threads < 1 ? 1 : threads),
      filter_(std::move(filter)),
      on_error_(std::move(on_error)),
      map_path_(std::move(map_path)),
      named_in_(std::move(named_in)) {}

Backup_Source_Lister::~Backup_Source_Lister() {
  if (!read_to_end_) stopped_ = true;
  if (impl_ != nullptr) impl_->end_reading();
  wait();
}

bool Backup_Source_Lister::open(const std::list<source_entry>& sources) {
  if (impl_ == nullptr || sources.empty()) return false;
  for (const source_entry& source : sources) {
    if (source.path.empty()) {
      ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("A source has no path.\n")), false);
    }
    if (!impl_->add_source(source)) return false;
  }
  log_ = ACE_LOG_MSG->msg_callback();
  if (activate(no_thread_flags, threads_) == 0) return true;
  ACE_ERROR_RETURN(
      (LM_ERROR, ACE_TEXT("Failed to activate %d threads to scan files, errno=%d, %m.\n"), threads_,
       errno),
      false);
}

int Backup_Source_Lister::next_entry(std::string& dir, Entry& entry, bool& is_source) {
  if (impl_ == nullptr) return -1;
  const int result = impl_->next_entry(dir, entry, is_source);
  if (result == at_end) read_to_end_ = true;
  return result;
}

int Backup_Source_Lister::svc() {
  if (impl_ == nullptr) return 0;
  const Thread_Log log(log_);
  std::string dir;
  for (;;) {
    const int result = impl_->next_directory(dir);
    if (result == at_end) return 0;
    if (result != found) {
      ACE_ERROR_RETURN(
          (LM_ERROR, ACE_TEXT("Failed to get next direcory to walk, errno=%d, %m.\n"), errno), 0);
    }
    if (dir.empty()) continue;
    const int error = walk_dir(dir);
    if (error == 0) continue;
    errno = error;
    ACE_ERROR(
        (LM_ERROR, ACE_TEXT("Failed to walk directory %s, errno=%d, %m.\n"), dir.c_str(), error));
  }
}

int Backup_Source_Lister::walk_dir(const std::string& path) {
  const int error = read_dir(path);
  const bool kept = error == 0 || error_of([&] { return add_named(path); }) == 0;
  // Directories that nobody waits for any more are handed back unread, so that the walk comes to
  // its end as ever.
  const bool stopped = stopped_;
  impl_->walk_end(path, kept && !stopped);
  if (stopped) return 0;
  if (error != 0 && on_error_) error_of([&] { return on_error_(path, error) ? 0 : error; });
  return error;
}

// An exception here must not keep the walk from being counted as ended.
int Backup_Source_Lister::read_dir(const std::string& path) {
  return error_of([&] { return add_entries(path); });
}

int Backup_Source_Lister::add_entries(const std::string& path) {
  if (stopped_) return 0;
  // The root of a volume, or the shadow in its place, may be a link.
  oxbase::Directory_Iterator_T<char> it(map_path_ ? map_path_(path) : path, false, 0,
                                        MTF_FS::is_root_path(path));
  const oxbase::Directory_Iterator_T<char> end;
  std::string top = with_separator(path);
  for (; it != end && !stopped_; ++it) {
    if (!add_wanted(path, top, *it)) return ENOMEM;
  }
  return it.ec();
}

int Backup_Source_Lister::add_named(const std::string& path) {
  if (stopped_ || !named_in_) return ENOENT;
  const std::vector<Entry> entries = named_in_(path);
  std::string top = with_separator(path);
  for (const Entry& entry : entries) {
    if (!add_wanted(path, top, entry)) return ENOMEM;
  }
  return entries.empty() ? ENOENT : 0;
}

// Adds an entry that the filter keeps. `top` is the directory with a separator behind it, and the
// room for the entry's path: it is the same afterwards.
bool Backup_Source_Lister::add_wanted(const std::string& path, std::string& top,
                                      const Entry& entry) {
  if (filter_) {
    const std::size_t size = top.size();
    top += entry.name;
    const bool wanted = filter_(top, entry);
    top.resize(size);
    if (!wanted) return true;
  }
  return impl_->add_entry(path, entry) >= 0;
}

}  // namespace MTF
