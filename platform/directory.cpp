#include "platform/directory.h"

#include <dirent.h>
#include <fcntl.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <new>

#include "platform/long_path.h"
#include "platform/native_path.h"
#include "platform/source_path.h"
#include "platform/stat.h"

namespace platform {
namespace {

constexpr std::size_t records_size = 32768;

bool is_dot_or_dots(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

}  // namespace

Directory_Handle::~Directory_Handle() {
  close();
}

void Directory_Handle::close() {
  if (fd_ >= 0) close_quietly(fd_);
  fd_ = -1;
  at_ = end_ = 0;
}

int Directory_Handle::open(const std::string& system_path, bool follow) {
  close();
  if (!records_) records_.reset(new (std::nothrow) char[records_size]);
  if (!records_) return ENOMEM;
  std::string native;
  if (!native_path(system_path, native)) return errno;
  fd_ = open_source_directory(native, follow);
  return fd_ < 0 ? errno : 0;
}

// Takes the next records into the empty buffer; none at the end. Returns 0 or the errno.
int Directory_Handle::fill() {
  ssize_t size = ::getdents64(fd_, records_.get(), records_size);
  // A directory that was removed has nothing more.
  if (size < 0 && errno == ENOENT) size = 0;
  if (size < 0) return errno;
  at_ = 0;
  end_ = static_cast<std::size_t>(size);
  return 0;
}

int Directory_Handle::next(std::string& name, _stat64& stat, bool& end) {
  end = false;
  if (fd_ < 0) return EBADF;
  for (;;) {
    const int error = at_ == end_ ? fill() : 0;
    end = error == 0 && at_ == end_;
    if (error != 0 || end) return error;
    const char* const record = records_.get() + at_;
    const char* const native = record + offsetof(dirent64, d_name);
    unsigned short length;
    std::memcpy(&length, record + offsetof(dirent64, d_reclen), sizeof length);
    at_ += length;
    if (is_dot_or_dots(native)) continue;
    struct stat st;
    if (::fstatat(fd_, native, &st, AT_SYMLINK_NOFOLLOW) == 0) {
      convert_stat(st, stat);
    } else if (errno == ENOENT) {
      continue;
    } else {
      // An entry that can't be examined keeps the kind that its directory tells, so that it counts
      // as a skipped file.
      stat = _stat64();
      stat.st_mode = DTTOIF(static_cast<unsigned char>(record[offsetof(dirent64, d_type)]));
    }
    system_name(native, name);
    return 0;
  }
}

}  // namespace platform
