// Small calls on the system.
#pragma once

#include <string>

namespace oxbase {

// Deletes the local directory tree at a native path, without following links. True if nothing is
// left, so also if nothing was there.
bool rm_rf(const char* path);

struct FS_Stat {
  unsigned int block_size = 0;  // allocation unit of the file system in bytes, a power of two
};

// The figures of the file system under a system path; false with errno.
bool get_disk_free_space(const char* system_path, FS_Stat& out);

// The text of an errno value. The second argument names the family of the code; there is one.
class POSIX_Error {
 public:
  POSIX_Error(int code, int family);
  const char* c_str() const { return text_.c_str(); }

 private:
  std::string text_;
};

// A wide path as UTF-8, for log lines.
class UTF16_String {
 public:
  explicit UTF16_String(const std::wstring& utf16);
  const char* c_utf8() const { return utf8_.c_str(); }

 private:
  std::string utf8_;
};

}  // namespace oxbase
