// Shell patterns.
#pragma once

#include <string>

namespace platform {

// True if all of `text` matches `pattern`: `*`, `?`, `[...]` and a backslash in front of one of
// them. A slash and a leading dot are characters like any other. Bytes, without a locale.
bool glob_match(const std::string& pattern, const std::string& text);

// True if `pattern` isn't empty and each `[` in it has its `]`.
bool is_glob(const std::string& pattern);

}  // namespace platform
