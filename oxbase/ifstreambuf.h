// A stream buffer over a local file.
#pragma once

#include <memory>
#include <streambuf>

#include "platform/file.h"

namespace oxbase {

// Not copyable; one thread at a time; it throws nothing.
class ACE_ifstreambuf : public std::streambuf {
 public:
  explicit ACE_ifstreambuf(unsigned long long buffer_size);

  // Opens the file at a native path; mode 0 is reading, the only one. Returns 0, or -1 with errno.
  int open(const char* native_path, int mode);

 protected:
  // The end of the file, or a read that failed, with errno.
  int_type underflow() override;
  // sgetn() gives fewer than `size` bytes at the end of the file alone; -1, with errno, where a
  // read failed.
  std::streamsize xsgetn(char* data, std::streamsize size) override;

 private:
  // Fills the empty buffer with one read: its bytes, 0 at the end, -1 on failure.
  std::streamsize fill();

  platform::File file_;
  std::unique_ptr<char[]> buffer_;
  std::size_t buffer_size_;
};

}  // namespace oxbase
