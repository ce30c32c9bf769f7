#include "oxbase/ifstreambuf.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

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

std::streamsize ACE_ifstreambuf::fill() {
  setg(nullptr, nullptr, nullptr);
  const long long n = file_.read(buffer_.get(), buffer_size_);
  if (n > 0) setg(buffer_.get(), buffer_.get(), buffer_.get() + n);
  return n;
}

ACE_ifstreambuf::int_type ACE_ifstreambuf::underflow() {
  if (gptr() == egptr() && fill() <= 0) return traits_type::eof();
  return traits_type::to_int_type(*gptr());
}

std::streamsize ACE_ifstreambuf::xsgetn(char* data, std::streamsize size) {
  std::streamsize done = 0;
  while (done < size) {
    std::streamsize n = std::min<std::streamsize>(size - done, egptr() - gptr());
    if (n > 0) {
      std::memcpy(data + done, gptr(), static_cast<std::size_t>(n));
      setg(eback(), gptr() + n, egptr());
      done += n;
      continue;
    }
    const bool past_buffer = static_cast<std::size_t>(size - done) >= buffer_size_;
    n = past_buffer ? file_.read(data + done, static_cast<std::size_t>(size - done)) : fill();
    if (n < 0) return -1;
    if (n == 0) break;
    if (past_buffer) done += n;
  }
  return done;
}

}  // namespace oxbase
