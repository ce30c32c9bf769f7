#include "platform/file.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>

#include "platform/long_path.h"
#include "platform/native_path.h"
#include "platform/source_path.h"

namespace platform {

File::~File() {
  if (fd_ >= 0) close_quietly(fd_);
}

bool File::open_read(const std::string& system_path) {
  close();
  if (!native_path(system_path, native_)) return false;
  fd_ = open_source(native_, O_RDONLY | O_NONBLOCK | O_NOCTTY);
  if (fd_ < 0) return false;
  int error = examine(fd_, native_, facts_);
  if (error == 0 && !S_ISREG(facts_.stat.st_mode)) error = EINVAL;
  if (error != 0) {
    close();
    errno = error;
    return false;
  }
  return true;
}

bool File::open_local_read(const std::string& native) {
  close();
  fd_ = open_path(native, O_RDONLY);
  return fd_ >= 0;
}

bool File::open_local_write(const std::string& native) {
  close();
  fd_ = open_path(native, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, 0600);
  return fd_ >= 0;
}

bool File::open_input(const std::string& native) {
  close();
  fd_ = open_path(native, O_RDONLY | O_NONBLOCK | O_NOCTTY);
  if (fd_ < 0) return false;
  // Only the open must not wait.
  const int flags = ::fcntl(fd_, F_GETFL);
  if (flags != -1 && ::fcntl(fd_, F_SETFL, flags & ~O_NONBLOCK) == 0) return true;
  const int error = errno;
  close();
  errno = error;
  return false;
}

long long File::read(char* data, std::size_t size) {
  for (;;) {
    const ssize_t n = ::read(fd_, data, size);
    if (n >= 0 || errno != EINTR) return n;
  }
}

bool File::write_all(const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t n = ::write(fd_, data, size);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    data += n;
    size -= static_cast<std::size_t>(n);
  }
  return true;
}

long long File::seek(long long offset, int whence) {
  const int from = whence == 0 ? SEEK_SET : whence == 1 ? SEEK_CUR : whence == 2 ? SEEK_END : -1;
  if (from < 0) {
    errno = EINVAL;
    return -1;
  }
  return ::lseek(fd_, offset, from);
}

bool File::close() {
  if (fd_ < 0) return true;
  const int fd = fd_;
  fd_ = -1;
  return ::close(fd) == 0;
}

bool wait_readable(int fd, int milliseconds) {
  if (fd < 0) return true;  // poll() passes it over
  pollfd asked = {fd, POLLIN, 0};
  const int ready = ::poll(&asked, 1, milliseconds);
  // If this call fails, the read shows what is there.
  return ready > 0 || (ready < 0 && errno != EINTR);
}

}  // namespace platform
