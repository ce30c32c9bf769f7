// Reading one directory.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

struct _stat64;

namespace platform {

class Directory_Handle {
 public:
  Directory_Handle() = default;
  ~Directory_Handle();
  Directory_Handle(const Directory_Handle&) = delete;
  Directory_Handle& operator=(const Directory_Handle&) = delete;

  // Opens a directory by its system path and closes the one before. A path that is itself a link
  // fails unless `follow`: a directory that a link took the place of since it was found must not
  // lead out of its tree, while the root of a volume may be a link. Returns 0 or the errno.
  int open(const std::string& system_path, bool follow = false);

  // The next entry with its system name and its stat record, of a link itself; `.` and `..` are
  // left out, and so is an entry that vanished in between. An entry that can't be examined comes
  // with an empty record, but for its kind in st_mode where the file system tells it. `end` is set,
  // and the rest untouched, behind the last entry. Returns 0 or the errno.
  int next(std::string& name, _stat64& stat, bool& end);

 private:
  int fill();
  void close();

  int fd_ = -1;
  std::unique_ptr<char[]> records_;  // entries as the system gave them
  std::size_t at_ = 0;
  std::size_t end_ = 0;
};

}  // namespace platform
