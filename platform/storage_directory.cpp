#include "platform/storage_directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>

#include "platform/tree.h"

namespace platform {
namespace {

constexpr mode_t owner_only_directory = 0700;
constexpr mode_t owner_only_file = 0600;

bool plain(const std::string& name) {
  if (Storage_Directory::is_plain(name)) return true;
  errno = EINVAL;
  return false;
}

}  // namespace

Storage_Directory::~Storage_Directory() {
  if (fd_ >= 0) ::close(fd_);
}

bool Storage_Directory::is_plain(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
         name.find('\0') == std::string::npos;
}

bool Storage_Directory::open(const std::string& path, bool make) {
  if (make) {
    const int error = make_last_dir(path, owner_only_directory);
    if (error != 0) {
      errno = error;
      return false;
    }
  }
  if (fd_ >= 0) ::close(fd_);
  fd_ = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  return fd_ >= 0;
}

bool Storage_Directory::is_writable() const {
  return ::faccessat(fd_, ".", W_OK | X_OK, AT_EACCESS) == 0;
}

bool Storage_Directory::identity(std::string& out) const {
  struct stat record;
  if (::fstat(fd_, &record) != 0) return false;
  char text[40];
  std::snprintf(text, sizeof text, "%llx-%llx", static_cast<unsigned long long>(record.st_dev),
                static_cast<unsigned long long>(record.st_ino));
  out = text;
  return true;
}

bool Storage_Directory::names(std::vector<std::string>& out) const {
  out.clear();
  // A handle of its own: the position of a directory stream is shared by all copies of a handle.
  const int fd = ::openat(fd_, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return false;
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(::fdopendir(fd), ::closedir);
  if (!directory) {
    const int error = errno;
    ::close(fd);
    errno = error;
    return false;
  }
  errno = 0;
  while (const dirent* entry = ::readdir(directory.get())) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") out.push_back(name);
    errno = 0;
  }
  return errno == 0;
}

bool Storage_Directory::create(const std::string& name, Piece_File& out) const {
  if (!plain(name) || !out.close()) return false;
  out.fd_ = ::openat(fd_, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                     owner_only_file);
  return out.is_open();
}

bool Storage_Directory::open_read(const std::string& name, Piece_File& out) const {
  if (!plain(name) || !out.close()) return false;
  // Without O_NONBLOCK a named pipe would keep the open waiting for a writer.
  Piece_File file;
  file.fd_ = ::openat(fd_, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (!file.is_open()) return false;
  struct stat record;
  if (::fstat(file.fd_, &record) != 0) return false;
  if (!S_ISREG(record.st_mode)) {
    errno = EINVAL;
    return false;
  }
  out = std::move(file);
  return true;
}

bool Storage_Directory::exists(const std::string& name) const {
  struct stat record;
  return plain(name) && ::fstatat(fd_, name.c_str(), &record, AT_SYMLINK_NOFOLLOW) == 0;
}

long long Storage_Directory::size(const std::string& name) const {
  struct stat record;
  if (!plain(name) || ::fstatat(fd_, name.c_str(), &record, AT_SYMLINK_NOFOLLOW) != 0) return -1;
  return static_cast<long long>(record.st_size);
}

bool Storage_Directory::rename(const std::string& from, const std::string& to) const {
  if (!plain(from) || !plain(to)) return false;
  if (exists(to)) {
    errno = EEXIST;
    return false;
  }
  return ::renameat(fd_, from.c_str(), fd_, to.c_str()) == 0;
}

bool Storage_Directory::remove(const std::string& name) const {
  return plain(name) && ::unlinkat(fd_, name.c_str(), 0) == 0;
}

bool Storage_Directory::sync() const {
  // A file system that has nothing to do here says EINVAL.
  return ::fsync(fd_) == 0 || errno == EINVAL;
}

bool Storage_Directory::lock(const std::string& name, Lock_File& out) const {
  if (!plain(name)) return false;
  const int fd =
      ::openat(fd_, name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, owner_only_file);
  return fd >= 0 && out.take(fd);
}

}  // namespace platform
