#include "platform/linkless_open.h"

#include <fcntl.h>
#include <limits.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/long_path.h"

namespace platform {
namespace {

constexpr int step_flags = O_PATH | O_DIRECTORY;
constexpr int every_flags = O_CLOEXEC | O_NOFOLLOW;

// Opens `path`, which may have many names, or fails with ENOSYS, or EPERM in some containers.
int open_at_once(int dir, const std::string& path, int flags) {
  open_how how = {};
  how.flags = static_cast<unsigned int>(flags | every_flags);
  how.resolve = RESOLVE_NO_SYMLINKS;
  long fd;
  do {
    fd = ::syscall(SYS_openat2, dir, path.c_str(), &how, sizeof how);
  } while (fd < 0 && (errno == EINTR || errno == EAGAIN));
  return static_cast<int>(fd);
}

int open_one(int dir, const std::string& name, int flags) {
  int fd;
  do {
    fd = ::openat(dir, name.c_str(), flags | every_flags);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

// Opens a path from the root directory on, up to `longest` bytes of it with each call of `open`.
template <class Open>
int open_in_steps(const std::string& path, int flags, std::size_t longest, Open open) {
  int dir = open(AT_FDCWD, "/", path.size() == 1 ? flags : step_flags);
  for (std::size_t at = 1; dir >= 0 && at < path.size();) {
    std::size_t end = path.size();
    if (end - at > longest) end = path.rfind('/', at + longest);
    end = std::max(end, std::min(path.find('/', at), path.size()));
    const int next = open(dir, path.substr(at, end - at), end == path.size() ? flags : step_flags);
    close_quietly(dir);
    dir = next;
    at = end + 1;
  }
  return dir;
}

}  // namespace

int open_without_links(const std::string& native, int flags) {
  const int fd = native.size() < PATH_MAX
                     ? open_at_once(AT_FDCWD, native, flags)
                     : open_in_steps(native, flags, PATH_MAX - 1, open_at_once);
  if (fd >= 0 || (errno != ENOSYS && errno != EPERM)) return fd;
  return open_in_steps(native, flags, 0, open_one);
}

}  // namespace platform
