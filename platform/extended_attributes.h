// The extended attributes of an open file in the form of Windows. POSIX ACLs and capabilities are
// among them.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace platform {

// Told of an attribute that is left out and why; an empty name stands for all of them.
using Left_Out_Attribute = std::function<void(const std::string& name, const std::string& why)>;

// Reads attributes of one file after the other. Keeps its memory.
class Extended_Attributes {
 public:
  explicit Extended_Attributes(Left_Out_Attribute left_out) : left_out_(std::move(left_out)) {}

  // Appends the attributes of `fd`, which may be a place alone (O_PATH), as
  // FILE_FULL_EA_INFORMATION entries, sorted by name, each but the last filled up to a multiple of
  // 4 bytes. The format holds values of up to 65,535 bytes; one that is longer or can't be read is
  // left out.
  void append(int fd, std::string& out);

 private:
  bool list(int fd);
  bool append_one(int fd, const char* name, std::string& out);

  Left_Out_Attribute left_out_;
  std::vector<char> names_;  // as the system gave them, each with its NUL
  std::size_t names_size_ = 0;
  std::vector<char> value_;
  std::vector<const char*> sorted_;
};

}  // namespace platform
