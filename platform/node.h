// What is neither a directory nor a regular file: symbolic links, devices and FIFOs.
#pragma once

#include <string>

#include "platform/extended_attributes.h"
#include "platform/stat.h"

namespace platform {

struct Node {
  _stat64 stat;
  unsigned long long allocated = 0;  // bytes on its disk
  std::string target;                // native, of a link
  std::string attributes;            // its extended attributes in the form of Windows
};

// Looks at one node after the other. Opens none of them and follows no link; a regular file is
// examined in the same way, without its content. One thread at a time.
class Node_Reader {
 public:
  explicit Node_Reader(Left_Out_Attribute left_out) : attributes_(std::move(left_out)) {}

  // Reads what lies at a system path, with its extended attributes where `with_attributes` is set.
  // False, with errno, on failure.
  bool read(const std::string& system_path, bool with_attributes, Node& out);

 private:
  Extended_Attributes attributes_;
  std::string native_;  // kept for its memory
};

}  // namespace platform
