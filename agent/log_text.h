// Lines of the library's log as people read them.
#pragma once

#include <string>

namespace agent {

// `line` with the native path in place of its system path; a line with a native one stays as it is.
std::string with_native_path(const std::string& line);

// What `line` has in common with others of its kind: "..." stands for its native path.
std::string kind_of(const std::string& line);

}  // namespace agent
