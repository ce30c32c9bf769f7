// Paths as they are typed.
#pragma once

#include <string>

namespace agent {

// `path` as an absolute one: a relative path counts from the working directory, and no link is
// resolved. An absolute path and one in system form stay as they are. False for an empty path or
// a working directory that is gone.
bool absolute_path(const std::string& path, std::string& out);

// A pattern for a whole path, in the same way: one that begins with neither a slash, a `*` nor a
// volume counts from the working directory. Components that mean nothing go: `./x` is `x`.
bool absolute_pattern(const std::string& pattern, std::string& out);

// The directory that `path` leads to, all links resolved; `path` itself if that fails.
std::string real_path(const std::string& path);

// True if the system path `path` is a symbolic link; `target` is then what it holds.
bool is_link(const std::string& path, std::string& target);

}  // namespace agent
