// The stat record that sources and directory entries carry.
#pragma once

// POSIX makes st_atime, st_mtime and st_ctime macros for st_atim.tv_sec and its like. The header
// that does so is read here, and the record has members of that shape, so that `.st_mtime` is the
// same thing in every source file.
#include <sys/stat.h>

#include <string>

namespace platform {

struct Stat_Time {
  long long tv_sec = 0;  // seconds since 1970
};

}  // namespace platform

// Nothing is narrower than on the platform.
struct _stat64 {
  unsigned long long st_dev = 0;
  // A file number that is unique over all file systems of a job: the inode number XOR a mix of the
  // device number.
  unsigned long long st_ino = 0;
  unsigned int st_mode = 0;
  unsigned long long st_nlink = 0;
  int st_uid = 0;
  int st_gid = 0;
  unsigned long long st_rdev = 0;
  long long st_size = 0;
  platform::Stat_Time st_atim;  // used as st_atime
  platform::Stat_Time st_mtim;  // used as st_mtime
  platform::Stat_Time st_ctim;  // used as st_ctime
};

namespace platform {

// The record of a path, of the link itself where it is one. Returns 0 or the errno.
int stat_link(const std::string& system_path, _stat64& out);

// The record of what a path leads to, through links.
int stat_target(const std::string& system_path, _stat64& out);

// The record of a native path, of the link itself.
int stat_link_native(const std::string& native, _stat64& out);

// The record from what the system gave.
void convert_stat(const struct stat& from, _stat64& out);
void convert_stat(const struct statx& from, _stat64& out);

}  // namespace platform
