// A part of the input as a file that the library opens by its path.
#pragma once

#include <string>

#include "fuzz/pieces.h"

namespace fuzz {

class Local_File {
 public:
  explicit Local_File(std::string_view bytes);
  ~Local_File();
  Local_File(const Local_File&) = delete;
  Local_File& operator=(const Local_File&) = delete;

  std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }

 private:
  int fd_;
};

}  // namespace fuzz
