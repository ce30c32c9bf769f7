#include "platform/directory.h"

#include <dirent.h>
#include <fcntl.h>

#include <cerrno>

#include "platform/long_path.h"
#include "platform/native_path.h"
#include "platform/source_path.h"
#include "platform/stat.h"

namespace platform {
namespace {

bool is_dot_or_dots(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

}  // namespace

Directory_Handle::~Directory_Handle() {
  close();
}

void Directory_Handle::close() {
  if (dir_) ::closedir(static_cast<DIR*>(dir_));
  dir_ = nullptr;
}

int Directory_Handle::open(const std::string& system_path, bool follow) {
  std::string native;
  return native_path(system_path, native) ? open_native(native, follow) : errno;
}

int Directory_Handle::open_native(const std::string& native, bool follow) {
  close();
  const int fd = open_source_directory(native, follow);
  if (fd < 0) return errno;
  dir_ = ::fdopendir(fd);
  if (dir_) return 0;
  const int error = errno;
  close_quietly(fd);
  return error;
}

int Directory_Handle::next(std::string& name, _stat64& stat, bool& end) {
  end = false;
  auto* const dir = static_cast<DIR*>(dir_);
  if (!dir) return EBADF;
  for (;;) {
    errno = 0;
    const dirent* entry = ::readdir(dir);
    if (!entry) {
      end = errno == 0;
      return errno;
    }
    if (is_dot_or_dots(entry->d_name)) continue;
    struct stat st;
    if (::fstatat(::dirfd(dir), entry->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0) {
      convert_stat(st, stat);
    } else if (errno == ENOENT) {
      continue;
    } else {
      // An entry that can't be examined keeps the kind that its directory tells, so that it counts
      // as a skipped file.
      stat = _stat64();
      stat.st_mode = DTTOIF(entry->d_type);
    }
    system_name(entry->d_name, name);
    return 0;
  }
}

}  // namespace platform
