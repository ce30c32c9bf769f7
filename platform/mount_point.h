// Mounts of file systems.
#pragma once

#include <string>

namespace platform {

// Takes away what is mounted at the native path `directory`, if nobody uses it. Returns 0 or the
// errno: EBUSY if somebody does, EPERM without the right to.
int unmount(const std::string& directory);

}  // namespace platform
