// What may stand as the name of one entry of a directory.
#pragma once

#include <string>

namespace MTF {

// False for a name that leads elsewhere than to an entry: none at all, a dot or two, or one with a
// separator or a NUL byte.
inline bool is_leaf_name(const std::string& name) {
  if (name.empty() || name == "." || name == "..") return false;
  return name.find_first_of(std::string("\\/\0", 3)) == std::string::npos;
}

}  // namespace MTF
