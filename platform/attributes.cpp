#include "platform/attributes.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <string>

#include "platform/native_path.h"
#include "platform/source_path.h"
#include "platform/utf16.h"

namespace platform {
namespace {

constexpr long long ticks_per_second = 10000000;
constexpr long long seconds_1601_to_1970 = 11644473600LL;
constexpr unsigned int every_field = STATX_BASIC_STATS | STATX_BTIME;

thread_local int last_error = 0;

bool fail() {
  last_error = windows_error(errno);
  return false;
}

// A time beyond the years that 63 bits hold becomes the last or the first tick, which no date of a
// block can hold either.
long long ticks(const struct statx_timestamp& time) {
  constexpr long long most = std::numeric_limits<long long>::max();
  if (time.tv_sec >= most / ticks_per_second - seconds_1601_to_1970) return most;
  if (time.tv_sec <= -most / ticks_per_second) return -most;
  return (time.tv_sec + seconds_1601_to_1970) * ticks_per_second + time.tv_nsec / 100;
}

FILETIME file_time(long long ticks) {
  const auto bits = static_cast<unsigned long long>(ticks);
  return {static_cast<unsigned int>(bits), static_cast<unsigned int>(bits >> 32)};
}

bool query(const wchar_t* path, unsigned mask, struct statx& st, std::string& native) {
  if (!path) {
    errno = EINVAL;
    return fail();
  }
  if (!native_path(from_utf16(path), native)) return fail();
  const Source_Path place(native);
  if (!place.ok()) return fail();
  return ::statx(place.dir(), place.rest(), AT_SYMLINK_NOFOLLOW, mask, &st) == 0 || fail();
}

unsigned int attributes(const struct statx& st, const std::string& native) {
  unsigned int bits = 0;
  if ((st.stx_mode & 0222) == 0) bits |= FILE_ATTRIBUTE_READONLY;
  // The root directory ends in its slash, so there is always a byte behind the last one.
  if (native.c_str()[native.rfind('/') + 1] == '.') bits |= FILE_ATTRIBUTE_HIDDEN;
  if (S_ISDIR(st.stx_mode)) bits |= FILE_ATTRIBUTE_DIRECTORY;
  if (!S_ISREG(st.stx_mode)) return bits;
  if (st.stx_blocks * S_BLKSIZE < st.stx_size) bits |= FILE_ATTRIBUTE_SPARSE_FILE;
  return bits | FILE_ATTRIBUTE_ARCHIVE;
}

void fill(const struct statx& st, const std::string& native, WIN32_FILE_ATTRIBUTE_DATA& out) {
  const long long modified = ticks(st.stx_mtime);
  const long long born =
      st.stx_mask & STATX_BTIME ? ticks(st.stx_btime) : std::min(modified, ticks(st.stx_ctime));
  out.dwFileAttributes = attributes(st, native);
  out.ftCreationTime = file_time(born);
  out.ftLastAccessTime = file_time(ticks(st.stx_atime));
  out.ftLastWriteTime = file_time(modified);
  out.nFileSizeHigh = static_cast<unsigned int>(st.stx_size >> 32);
  out.nFileSizeLow = static_cast<unsigned int>(st.stx_size);
}

}  // namespace

bool GetFileAttributesExW(const wchar_t* path, int level, void* data) {
  if (level != GetFileExInfoStandard || !data) {
    errno = EINVAL;
    return fail();
  }
  struct statx st;
  std::string native;
  if (!query(path, every_field, st, native)) return false;
  fill(st, native, *static_cast<WIN32_FILE_ATTRIBUTE_DATA*>(data));
  return true;
}

bool enter_directory(const wchar_t* path, WIN32_FILE_ATTRIBUTE_DATA& data) {
  struct statx st;
  std::string native;
  if (!native_path(from_utf16(path), native)) return false;
  const int fd = enter_source_directory(native);
  if (fd < 0 || ::statx(fd, "", AT_EMPTY_PATH, every_field, &st) != 0) return false;
  fill(st, native, data);
  return true;
}

int examine(int fd, const std::string& native, File_Facts& out) {
  struct statx st;
  if (::statx(fd, "", AT_EMPTY_PATH, every_field, &st) != 0) return errno;
  convert_stat(st, out.stat);
  fill(st, native, out.data);
  out.allocated = static_cast<long long>(st.stx_blocks * S_BLKSIZE);
  return 0;
}

unsigned long GetLastError() {
  return static_cast<unsigned long>(last_error);
}

long long file_time_seconds(const FILETIME& time) {
  const auto ticks = static_cast<long long>(
      static_cast<unsigned long long>(time.dwHighDateTime) << 32 | time.dwLowDateTime);
  const long long seconds = ticks / ticks_per_second - (ticks % ticks_per_second < 0 ? 1 : 0);
  return seconds - seconds_1601_to_1970;
}

long long allocated_size(const wchar_t* path) {
  struct statx st;
  std::string native;
  if (!query(path, STATX_BLOCKS, st, native)) return -1;
  return static_cast<long long>(st.stx_blocks * S_BLKSIZE);
}

int windows_error(int errno_value) {
  switch (errno_value) {
    case 0:
      return 0;
    case ENOENT:
      return 2;  // ERROR_FILE_NOT_FOUND
    case ENOTDIR:
      return 3;  // ERROR_PATH_NOT_FOUND
    case EMFILE:
    case ENFILE:
      return 4;  // ERROR_TOO_MANY_OPEN_FILES
    case EACCES:
    case EPERM:
      return 5;  // ERROR_ACCESS_DENIED
    case EBADF:
      return 6;  // ERROR_INVALID_HANDLE
    case ENOMEM:
      return 8;  // ERROR_NOT_ENOUGH_MEMORY
    case ENODEV:
      return 15;  // ERROR_INVALID_DRIVE
    case EROFS:
      return 19;  // ERROR_WRITE_PROTECT
    case EBUSY:
    case ETXTBSY:
      return 32;  // ERROR_SHARING_VIOLATION
    case EAGAIN:
    case EDEADLK:
    case ENOLCK:
      return 33;  // ERROR_LOCK_VIOLATION
    case EOPNOTSUPP:
      return 50;  // ERROR_NOT_SUPPORTED
    case EINVAL:
      return 87;  // ERROR_INVALID_PARAMETER
    case ENOSPC:
    case EDQUOT:
      return 112;  // ERROR_DISK_FULL
    case ENOTEMPTY:
      return 145;  // ERROR_DIR_NOT_EMPTY
    case EEXIST:
      return 183;  // ERROR_ALREADY_EXISTS
    case ENAMETOOLONG:
      return 206;  // ERROR_FILENAME_EXCED_RANGE
    case EIO:
      return 1117;  // ERROR_IO_DEVICE
    case ELOOP:
      return 1921;  // ERROR_CANT_RESOLVE_FILENAME
    default:
      return 31;  // ERROR_GEN_FAILURE
  }
}

}  // namespace platform
