// Mounts of file systems.
#pragma once

#include <string>

namespace platform {

// Takes away what is mounted at the native path `directory`, if nobody uses it. Returns 0 or the
// errno: EBUSY if somebody does, EPERM without the right to.
int unmount(const std::string& directory);

// True if a file system of this type, such as "fuse.mtf", is mounted at `directory` and on top
// there.
bool is_mounted(const std::string& directory, const std::string& type);

}  // namespace platform
