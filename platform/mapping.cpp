#include "platform/mapping.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "platform/long_path.h"

namespace platform {
namespace {

constexpr unsigned long long min_segment = 1ULL << 20;
constexpr unsigned long long max_segment = 1ULL << 26;
// Room for some 500,000,000 entries. A job sets this aside for its walk and for each channel, and a
// process may have little address space to give: 512 GiB in a piece under the thread sanitizer.
// A process with a limit gets what fits into it.
constexpr unsigned long long max_reserve = 1ULL << 36;

unsigned long long round_up(unsigned long long n) {
  return (n + min_segment - 1) / min_segment * min_segment;
}

// How much is allocated ahead: an eighth of what is there, within bounds.
unsigned long long segment(unsigned long long size) {
  return round_up(std::clamp(size / 8, min_segment, max_segment));
}

}  // namespace

Mapping::~Mapping() {
  close();
}

bool Mapping::create(const std::string& native, bool keep_name) {
  close();
  if (::unlink(native.c_str()) != 0 && errno != ENOENT) return false;
  fd_ = open_path(native, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
  if (fd_ < 0) return false;
  if (keep_name || ::unlink(native.c_str()) == 0) return true;
  const int error = errno;
  close();
  errno = error;
  return false;
}

bool Mapping::create_in(const std::string& native_directory) {
  close();
  if (native_directory.empty()) {
    errno = ENOENT;
    return false;
  }
  std::string name = native_directory + "/pool.XXXXXX";
  fd_ = ::mkostemp(&name[0], O_CLOEXEC);
  if (fd_ < 0) return false;
  if (::unlink(name.c_str()) == 0) return true;
  const int error = errno;
  close();
  errno = error;
  return false;
}

bool Mapping::reserve() {
  for (unsigned long long size = max_reserve; size >= min_segment; size /= 2) {
    void* const place =
        ::mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (place == MAP_FAILED) continue;
    base_ = static_cast<char*>(place);
    reserved_ = size;
    return true;
  }
  return false;
}

bool Mapping::grow(unsigned long long size) {
  if (size <= size_ && base_) return true;
  if (fd_ < 0) {
    errno = EBADF;
    return false;
  }
  if (!base_ && !reserve()) return false;
  if (size > reserved_) {
    errno = ENOMEM;
    return false;
  }
  // Near the end of the disk the exact need may still fit where a segment ahead doesn't.
  const unsigned long long ahead =
      std::min(std::max(round_up(size), size_ ? size_ + segment(size_) : 0), reserved_);
  return extend(ahead) || (ahead > round_up(size) && extend(round_up(size)));
}

bool Mapping::extend(unsigned long long size) {
  int error;
  do {
    error = ::posix_fallocate(fd_, static_cast<off_t>(size_), static_cast<off_t>(size - size_));
  } while (error == EINTR);
  if (error == 0) {
    void* const place = ::mmap(base_ + size_, size - size_, PROT_READ | PROT_WRITE,
                               MAP_SHARED | MAP_FIXED, fd_, static_cast<off_t>(size_));
    if (place != MAP_FAILED) {
      size_ = size;
      return true;
    }
    error = errno;
  }
  // Blocks that were allocated in part go back to the disk; that this may fail changes nothing.
  [[maybe_unused]] const int ignored = ::ftruncate(fd_, static_cast<off_t>(size_));
  errno = error;
  return false;
}

void Mapping::unload() {
  // The system may say no, which costs memory and nothing else.
  if (size_ > 0) ::madvise(base_, size_, MADV_DONTNEED);
}

void Mapping::close() {
  if (base_) ::munmap(base_, reserved_);
  if (fd_ >= 0) close_quietly(fd_);
  fd_ = -1;
  base_ = nullptr;
  reserved_ = size_ = 0;
}

}  // namespace platform
