// What may stand as the name of one entry of a directory.
#pragma once

#include <algorithm>
#include <string>

namespace MTF {

// False for a name that leads elsewhere than to an entry: none at all, a dot or two, or one with a
// separator or a NUL byte.
inline bool is_leaf_name(const std::string& name) {
  if (name.empty() || name == "." || name == "..") return false;
  return name.find_first_of(std::string("\\/\0", 3)) == std::string::npos;
}

// True where all that `separator` stands between or behind are such names.
inline bool has_leaf_names(const std::string& path, char separator) {
  for (std::size_t at = 0; at < path.size();) {
    const std::size_t end = std::min(path.find(separator, at), path.size());
    if (!is_leaf_name(path.substr(at, end - at))) return false;
    at = end + 1;
  }
  return true;
}

}  // namespace MTF
