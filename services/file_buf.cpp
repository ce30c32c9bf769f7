#include "services/file_buf.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "services/local_failure.h"

namespace MTF_FS {
namespace {

// From here on a copy through the buffer costs more than a read of its own.
constexpr std::streamsize direct_read = 4096;

int failed_with(int error) {
  errno = error;
  return -1;
}

}  // namespace

ifilebuf::ifilebuf(unsigned long long buffer_size) : buffer_size_(std::max(buffer_size, 1ULL)) {}

int ifilebuf::open(const char* system_path, int flags, int share) {
  if (!system_path) return failed_with(EINVAL);
  path_ = system_path;
  return open(path_, flags, share);
}

int ifilebuf::open(const std::string& system_path, int /*flags*/, int /*share*/) {
  setg(nullptr, nullptr, nullptr);
  last_error_ = 0;
  return file_.open_read(system_path) ? 0 : -1;
}

long long ifilebuf::read(char* data, std::size_t size) {
  const long long n = file_.read(data, size);
  if (n < 0) last_error_ = errno;
  return n;
}

// Fills the empty buffer with one read.
long long ifilebuf::fill() {
  setg(nullptr, nullptr, nullptr);
  if (!buffer_) buffer_.reset(new (std::nothrow) char[buffer_size_]);
  if (!buffer_) {
    last_error_ = ENOMEM;
    return failed_with(ENOMEM);
  }
  const long long n = read(buffer_.get(), buffer_size_);
  if (n > 0) setg(buffer_.get(), buffer_.get(), buffer_.get() + n);
  return n;
}

std::streamsize ifilebuf::xsgetn(char* data, std::streamsize size) {
  if (size <= 0) return 0;
  if (gptr() == egptr()) {
    if (size >= direct_read) return read(data, static_cast<std::size_t>(size));
    const long long n = fill();
    if (n <= 0) return n;
  }
  const std::streamsize n = std::min<std::streamsize>(size, egptr() - gptr());
  std::memcpy(data, gptr(), static_cast<std::size_t>(n));
  setg(eback(), gptr() + n, egptr());
  return n;
}

ifilebuf::int_type ifilebuf::underflow() {
  if (gptr() == egptr() && fill() <= 0) return traits_type::eof();
  return traits_type::to_int_type(*gptr());
}

// pbump() takes an int, which bounds the buffer.
ofilebuf::ofilebuf(unsigned long long buffer_size)
    : buffer_size_(std::clamp(buffer_size, 1ULL, 1ULL << 30)) {}

// The caller can't be told of a failure any more.
ofilebuf::~ofilebuf() {
  if (error_ == 0) file_.write_all(pbase(), static_cast<std::size_t>(pptr() - pbase()));
}

int ofilebuf::open(const char* native_path, int /*flags*/, int /*share*/) {
  close();
  if (!native_path) return failed_with(EINVAL);
  if (!buffer_) buffer_.reset(new (std::nothrow) char[buffer_size_]);
  if (!buffer_) return failed_with(ENOMEM);
  path_ = native_path;
  error_ = 0;
  if (!file_.open_local_write(path_)) {
    MTF::local_failure("make", path_);
    return -1;
  }
  setp(buffer_.get(), buffer_.get() + buffer_size_);
  return 0;
}

bool ofilebuf::flush() {
  const std::ptrdiff_t size = pptr() - pbase();
  if (size != 0 && !write(pbase(), static_cast<std::size_t>(size))) return false;
  setp(buffer_.get(), buffer_.get() + buffer_size_);
  return true;
}

bool ofilebuf::write(const char* data, std::size_t size) {
  if (error_ == 0) {
    if (file_.write_all(data, size)) return true;
    error_ = errno;
    MTF::local_failure("write", path_);
  }
  errno = error_;
  return false;
}

std::streamsize ofilebuf::xsputn(const char* data, std::streamsize size) {
  if (!file_.is_open() || size <= 0) return 0;
  if (size > epptr() - pptr() && !flush()) return 0;
  if (static_cast<std::size_t>(size) >= buffer_size_) {
    return write(data, static_cast<std::size_t>(size)) ? size : 0;
  }
  std::memcpy(pptr(), data, static_cast<std::size_t>(size));
  pbump(static_cast<int>(size));
  return size;
}

ofilebuf::int_type ofilebuf::overflow(int_type c) {
  if (!file_.is_open() || !flush()) return traits_type::eof();
  if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
  *pptr() = traits_type::to_char_type(c);
  pbump(1);
  return c;
}

int ofilebuf::sync() {
  return flush() ? 0 : -1;
}

long long ofilebuf::seek(long long offset, int whence) {
  if (!file_.is_open()) return failed_with(EBADF);
  return flush() ? file_.seek(offset, whence) : -1;
}

int ofilebuf::close() {
  if (!file_.is_open()) return 0;
  flush();
  setp(nullptr, nullptr);
  if (!file_.close() && error_ == 0) {
    error_ = errno;
    MTF::local_failure("write", path_);
  }
  return error_ == 0 ? 0 : failed_with(error_);
}

}  // namespace MTF_FS
