// A stream buffer over a local file.
#pragma once

#include <memory>
#include <streambuf>

#include "platform/file.h"

namespace oxbase {

// A read error throws std::ios_base::failure, with errno, from the operation that reads: only so
// can sgetn() tell it from the end of the file. Not copyable; one thread at a time.
class ACE_ifstreambuf : public std::streambuf {
 public:
  explicit ACE_ifstreambuf(unsigned long long buffer_size);

  // Opens the file at a native path; mode 0 is reading, the only one. Returns 0, or -1 with errno.
  int open(const char* native_path, int mode);

 protected:
  int_type underflow() override;
  std::streamsize xsgetn(char* data, std::streamsize size) override;

 private:
  std::size_t read(char* data, std::size_t size);

  platform::File file_;
  std::unique_ptr<char[]> buffer_;
  std::size_t buffer_size_;
};

}  // namespace oxbase
