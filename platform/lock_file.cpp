#include "platform/lock_file.h"

#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace platform {

Lock_File::~Lock_File() {
  release();
}

void Lock_File::release() {
  if (fd_ >= 0) ::close(std::exchange(fd_, -1));
}

bool Lock_File::take(int fd) {
  release();
  if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    const int error = errno;
    ::close(fd);
    errno = error;
    return false;
  }
  fd_ = fd;
  return true;
}

}  // namespace platform
