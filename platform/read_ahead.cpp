#include "platform/read_ahead.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>

#include "platform/native_path.h"
#include "platform/source_path.h"

namespace platform {

unsigned long long disk_reads_of_thread() {
  constexpr unsigned long long block_size = 512;
  rusage usage;
  return ::getrusage(RUSAGE_THREAD, &usage) == 0
             ? static_cast<unsigned long long>(usage.ru_inblock) * block_size
             : 0;
}

void read_ahead(int fd, unsigned long long offset, unsigned long long size) {
  // Of one request the kernel reads no more than the disk's own setting says, which is rarely less.
  constexpr unsigned long long piece = 0x20000;
  for (const unsigned long long end = offset + size; offset < end; offset += piece) {
    ::posix_fadvise(fd, static_cast<off_t>(offset),
                    static_cast<off_t>(std::min(piece, end - offset)), POSIX_FADV_WILLNEED);
  }
}

void read_file_ahead(const std::string& system_path, unsigned long long most) {
  std::string native;
  if (!native_path(system_path, native)) return;
  const Source_Path path(native);
  struct stat st;
  if (!path.ok() || ::fstatat(path.dir(), path.rest(), &st, AT_SYMLINK_NOFOLLOW) != 0 ||
      !S_ISREG(st.st_mode)) {
    return;
  }
  const int fd =
      ::openat(path.dir(), path.rest(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return;
  read_ahead(fd, 0, std::min(most, static_cast<unsigned long long>(st.st_size)));
  ::flistxattr(fd, nullptr, 0);
  ::close(fd);
}

}  // namespace platform
