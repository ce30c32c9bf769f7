#include "platform/held_directory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/long_path.h"
#include "platform/tree.h"

namespace platform {
namespace {

constexpr int most_attempts = 500;
constexpr useconds_t pause_between = 10000;  // microseconds

bool refuse_with(int error) {
  errno = error;
  return false;
}

// False where `path` leads elsewhere by now: the directory was removed before the lock was there.
bool leads_to(const std::string& path, int fd) {
  struct stat held, named;
  return ::fstat(fd, &held) == 0 && ::lstat(path.c_str(), &named) == 0 &&
         held.st_dev == named.st_dev && held.st_ino == named.st_ino;
}

}  // namespace

Held_Directory::~Held_Directory() {
  release();
}

bool Held_Directory::make(const std::string& path) {
  int error = 0;
  for (int attempt = 0; attempt < most_attempts; ++attempt) {
    if (private_directory(path) && hold(path, false)) return true;
    error = errno;
    // Gone between two steps: whoever held it has removed it.
    if (error != EWOULDBLOCK && error != ENOENT) return false;
    if (error == EWOULDBLOCK) ::usleep(pause_between);
  }
  return refuse_with(error == EWOULDBLOCK ? EBUSY : error);
}

bool Held_Directory::take_over(const std::string& path) {
  return hold(path, true);
}

bool Held_Directory::hold(const std::string& path, bool needs_lock) {
  release();
  const int fd = open_path(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
  if (fd < 0) return false;
  struct stat st;
  int error = ::fstat(fd, &st) == 0 ? 0 : errno;
  if (error == 0 && st.st_uid != ::geteuid()) error = EPERM;
  if (error == 0 && ::flock(fd, LOCK_EX | LOCK_NB) != 0 && (needs_lock || errno == EWOULDBLOCK)) {
    error = errno;
  }
  if (error == 0 && !leads_to(path, fd)) error = ENOENT;
  if (error != 0) {
    ::close(fd);
    return refuse_with(error);
  }
  path_ = path;
  fd_ = fd;
  return true;
}

bool Held_Directory::remove() {
  if (fd_ < 0) return true;
  const bool removed = remove_tree(path_);
  const int error = errno;
  release();
  return removed || refuse_with(error);
}

void Held_Directory::release() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  path_.clear();
}

}  // namespace platform
