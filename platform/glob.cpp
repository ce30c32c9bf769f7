#include "platform/glob.h"

#include <fnmatch.h>

namespace platform {

bool glob_match(const std::string& pattern, const std::string& text) {
  return ::fnmatch(pattern.c_str(), text.c_str(), 0) == 0;
}

}  // namespace platform
