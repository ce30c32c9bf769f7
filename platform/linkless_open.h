// Opening a path on which no name is a symbolic link.
#pragma once

#include <string>

namespace platform {

// open(2) of an absolute native path of any length, close-on-exec, for reading or as a place
// (O_PATH). One call of the system where it has openat2(2), else one for each name. -1 with errno
// on failure, ELOOP or ENOTDIR where a link is in the way.
int open_without_links(const std::string& native, int flags);

}  // namespace platform
