#include "platform/glob.h"

#include <fnmatch.h>

namespace platform {
namespace {

// The `]` that closes the `[` at `at`. A `]` right behind the `[` is a member of the set.
std::size_t bracket_end(const std::string& pattern, std::size_t at) {
  std::size_t first = at + 1;
  if (first < pattern.size() && (pattern[first] == '!' || pattern[first] == '^')) ++first;
  for (std::size_t i = first; i < pattern.size(); ++i) {
    if (pattern[i] == ']' && i != first) return i;
    if (pattern[i] == '\\') ++i;
    if (pattern.compare(i, 2, "[:") == 0) {
      const std::size_t end = pattern.find(":]", i + 2);
      if (end != std::string::npos) i = end + 1;
    }
  }
  return std::string::npos;
}

}  // namespace

bool glob_match(const std::string& pattern, const std::string& text) {
  return ::fnmatch(pattern.c_str(), text.c_str(), 0) == 0;
}

bool is_glob(const std::string& pattern) {
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    if (pattern[i] == '\\') {
      ++i;
      continue;
    }
    if (pattern[i] != '[') continue;
    i = bracket_end(pattern, i);
    if (i == std::string::npos) return false;
  }
  return !pattern.empty();
}

}  // namespace platform
