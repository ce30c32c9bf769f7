#include "agent/exclude_filter.h"

#include <algorithm>

#include "platform/glob.h"
#include "platform/native_path.h"
#include "services/source_list.h"

namespace agent {

bool Exclude_Filter::accept(const char* path, bool) const {
  return !MTF::is_exclude(excludes_, path) && (globs_.empty() || !matches_glob(path));
}

bool Exclude_Filter::matches_glob(const std::string& path) const {
  const std::size_t last = path.find_last_not_of('\\');
  const std::string native = platform::display_path(path.substr(0, last + 1));
  const std::string name = native.substr(native.rfind('/') + 1);
  return std::any_of(globs_.begin(), globs_.end(), [&](const std::string& glob) {
    return platform::glob_match(glob, native) || platform::glob_match(glob, name);
  });
}

}  // namespace agent
