#include "platform/stat.h"

#include <fcntl.h>
#include <sys/sysmacros.h>

#include <cerrno>

#include "platform/long_path.h"
#include "platform/native_path.h"

namespace platform {
namespace {

// Spreads a device number over 64 bits, so that inode numbers of two file systems, which are small
// and dense, don't become equal.
unsigned long long mix(unsigned long long x) {
  x = (x ^ x >> 30) * 0xBF58476D1CE4E5B9ULL;
  x = (x ^ x >> 27) * 0x94D049BB133111EBULL;
  return x ^ x >> 31;
}

int stat_native(const std::string& native, int flags, _stat64& out) {
  const Long_Path path(native);
  struct stat st;
  if (!path.ok() || ::fstatat(path.dir(), path.rest(), &st, flags) != 0) return errno;
  convert_stat(st, out);
  return 0;
}

}  // namespace

void convert_stat(const struct stat& from, _stat64& out) {
  out.st_dev = from.st_dev;
  out.st_ino = from.st_ino ^ mix(from.st_dev);
  out.st_mode = from.st_mode;
  out.st_nlink = from.st_nlink;
  out.st_uid = static_cast<int>(from.st_uid);
  out.st_gid = static_cast<int>(from.st_gid);
  out.st_rdev = from.st_rdev;
  out.st_size = from.st_size;
  out.st_atime = from.st_atime;
  out.st_mtime = from.st_mtime;
  out.st_ctime = from.st_ctime;
}

void convert_stat(const struct statx& from, _stat64& out) {
  out.st_dev = ::makedev(from.stx_dev_major, from.stx_dev_minor);
  out.st_ino = from.stx_ino ^ mix(out.st_dev);
  out.st_mode = from.stx_mode;
  out.st_nlink = from.stx_nlink;
  out.st_uid = static_cast<int>(from.stx_uid);
  out.st_gid = static_cast<int>(from.stx_gid);
  out.st_rdev = ::makedev(from.stx_rdev_major, from.stx_rdev_minor);
  out.st_size = static_cast<long long>(from.stx_size);
  out.st_atime = from.stx_atime.tv_sec;
  out.st_mtime = from.stx_mtime.tv_sec;
  out.st_ctime = from.stx_ctime.tv_sec;
}

int stat_link_native(const std::string& native, _stat64& out) {
  return stat_native(native, AT_SYMLINK_NOFOLLOW, out);
}

int stat_link(const std::string& system_path, _stat64& out) {
  std::string native;
  return native_path(system_path, native) ? stat_link_native(native, out) : errno;
}

int stat_target(const std::string& system_path, _stat64& out) {
  std::string native;
  return native_path(system_path, native) ? stat_native(native, 0, out) : errno;
}

}  // namespace platform
