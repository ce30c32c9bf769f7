// Paths of the sources in the form that the calls ending in `at` take (source_root.h).
#pragma once

#include <optional>
#include <string>

#include "platform/long_path.h"

namespace platform {

// A native path that must outlive the object. Below a source the directory that holds it stays open
// for the paths that follow it on the same thread: what lies in one directory is reached by its
// name alone.
class Source_Path {
 public:
  explicit Source_Path(const std::string& native);
  ~Source_Path();
  Source_Path(const Source_Path&) = delete;
  Source_Path& operator=(const Source_Path&) = delete;

  // False, with errno, if a leading directory couldn't be opened.
  bool ok() const { return rest_ != nullptr; }

  int dir() const { return dir_; }            // until the next path of the thread
  const char* rest() const { return rest_; }  // one name, or a path above the sources

  // True for a source and what lies below one.
  bool guarded() const { return !unguarded_.has_value(); }

 private:
  void open_source(const std::string& real);

  int dir_ = -1;
  const char* rest_ = nullptr;
  std::string leaf_;
  bool owned_ = false;
  std::optional<Long_Path> unguarded_;
};

// open(2) for reading, close-on-exec and repeated when a signal interrupts it. With O_NONBLOCK a
// file under a lease is waited for until the lease is given back or broken by the kernel, and
// nothing else is. A path that is itself a link can't be opened, but with `follow` above a source.
// -1 with errno on failure.
int open_source(const std::string& native, int flags, bool follow = false);

// Opens a directory, a source or one below it, as the one that this thread keeps open to reach it
// and the paths in it. Gives its descriptor, a place (O_PATH) that stays the thread's; -1 where
// that can't be done.
int enter_source_directory(const std::string& native);

// Opens a directory to read its entries, in the same way. The thread's own directory isn't changed.
int open_source_directory(const std::string& native, bool follow);

}  // namespace platform
