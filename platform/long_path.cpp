#include "platform/long_path.h"

#include <fcntl.h>
#include <limits.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace platform {

Long_Path::Long_Path(const std::string& path) : dir_(AT_FDCWD), rest_(path.c_str()) {
  const char* const end = path.c_str() + path.size();
  std::string step;
  while (end - rest_ >= PATH_MAX) {
    const void* slash = ::memrchr(rest_, '/', PATH_MAX - 1);
    const std::size_t length =
        slash ? static_cast<std::size_t>(static_cast<const char*>(slash) - rest_) : 0;
    if (length == 0) {
      errno = ENAMETOOLONG;
      rest_ = nullptr;
      return;
    }
    step.assign(rest_, length);
    const int next = ::openat(dir_, step.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (dir_ != AT_FDCWD) close_quietly(dir_);
    dir_ = next < 0 ? AT_FDCWD : next;
    if (next < 0) {
      rest_ = nullptr;
      return;
    }
    rest_ += length;
    while (*rest_ == '/') ++rest_;
  }
}

Long_Path::~Long_Path() {
  if (dir_ != AT_FDCWD) close_quietly(dir_);
}

int open_path(const std::string& native, int flags, unsigned mode) {
  const Long_Path path(native);
  if (!path.ok()) return -1;
  int fd;
  do {
    fd = ::openat(path.dir(), path.rest(), flags | O_CLOEXEC, mode);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

void close_quietly(int fd) {
  const int kept = errno;
  ::close(fd);
  errno = kept;
}

}  // namespace platform
