#include "platform/piece_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <utility>

#include "platform/read_ahead.h"

namespace platform {

Piece_File::~Piece_File() {
  close();
}

Piece_File::Piece_File(Piece_File&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

Piece_File& Piece_File::operator=(Piece_File&& other) noexcept {
  if (this != &other) {
    close();
    fd_ = std::exchange(other.fd_, -1);
  }
  return *this;
}

bool Piece_File::open_unnamed(const std::string& directory) {
  close();
  fd_ = ::open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (fd_ >= 0 || (errno != EOPNOTSUPP && errno != EISDIR)) return fd_ >= 0;
  // The file system can't make a file without a name: it gets one for a moment.
  std::string path = directory + "/mtf-XXXXXX";
  fd_ = ::mkostemp(path.data(), O_CLOEXEC);
  return fd_ >= 0 && ::unlink(path.c_str()) == 0;
}

bool Piece_File::write_all(const char* data, std::size_t size) {
  while (size != 0) {
    const ssize_t count = ::write(fd_, data, size);
    if (count < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    data += count;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

bool Piece_File::sync() {
  return ::fdatasync(fd_) == 0;
}

bool Piece_File::close() {
  if (fd_ < 0) return true;
  return ::close(std::exchange(fd_, -1)) == 0;
}

long long Piece_File::read(char* data, std::size_t size) {
  ssize_t count;
  do {
    count = ::read(fd_, data, size);
  } while (count < 0 && errno == EINTR);
  return count;
}

long long Piece_File::read_at(unsigned long long offset, char* data, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t count = ::pread(fd_, data + done, size - done, static_cast<off_t>(offset + done));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return -1;
    if (count == 0) break;
    done += static_cast<std::size_t>(count);
  }
  return static_cast<long long>(done);
}

void Piece_File::forget_cached() {
  ::posix_fadvise(fd_, 0, 0, POSIX_FADV_DONTNEED);
}

void Piece_File::read_ahead(unsigned long long offset, unsigned long long size) {
  platform::read_ahead(fd_, offset, size);
}

long long Piece_File::size() const {
  struct stat record;
  return ::fstat(fd_, &record) == 0 ? static_cast<long long>(record.st_size) : -1;
}

}  // namespace platform
