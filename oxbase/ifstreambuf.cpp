#include "oxbase/ifstreambuf.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ios>
#include <new>
#include <system_error>

namespace oxbase {

ACE_ifstreambuf::ACE_ifstreambuf(unsigned long long buffer_size)
    : buffer_size_(std::max(buffer_size, 1ULL)) {}

int ACE_ifstreambuf::open(const char* native_path, int mode) {
  setg(nullptr, nullptr, nullptr);
  if (!native_path || mode != 0) {
    errno = EINVAL;
    return -1;
  }
  if (!buffer_) buffer_.reset(new (std::nothrow) char[buffer_size_]);
  if (!buffer_) {
    errno = ENOMEM;
    return -1;
  }
  return file_.open_local_read(native_path) ? 0 : -1;
}

std::size_t ACE_ifstreambuf::read(char* data, std::size_t size) {
  const long long n = file_.read(data, size);
  if (n < 0) {
    throw std::ios_base::failure("read failed", std::error_code(errno, std::generic_category()));
  }
  return static_cast<std::size_t>(n);
}

ACE_ifstreambuf::int_type ACE_ifstreambuf::underflow() {
  if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
  setg(nullptr, nullptr, nullptr);
  const std::size_t n = read(buffer_.get(), buffer_size_);
  setg(buffer_.get(), buffer_.get(), buffer_.get() + n);
  return n == 0 ? traits_type::eof() : traits_type::to_int_type(*gptr());
}

std::streamsize ACE_ifstreambuf::xsgetn(char* data, std::streamsize size) {
  std::streamsize done = 0;
  while (done < size) {
    std::streamsize n = std::min<std::streamsize>(size - done, egptr() - gptr());
    if (n > 0) {
      std::memcpy(data + done, gptr(), static_cast<std::size_t>(n));
      setg(eback(), gptr() + n, egptr());
    } else if (static_cast<std::size_t>(size - done) >= buffer_size_) {
      n = static_cast<std::streamsize>(read(data + done, static_cast<std::size_t>(size - done)));
      if (n == 0) break;
    } else if (traits_type::eq_int_type(underflow(), traits_type::eof())) {
      break;
    }
    done += n;
  }
  return done;
}

}  // namespace oxbase
