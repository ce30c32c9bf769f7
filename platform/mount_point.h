// Mounts of file systems.
#pragma once

#include <string>

namespace platform {

// True if somebody uses what is mounted at the native path `directory`; false too where this
// process has no right to unmount it.
bool is_in_use(const std::string& directory);

// True if a file system of this type, such as "fuse.mtf", is mounted at `directory` and on top
// there.
bool is_mounted(const std::string& directory, const std::string& type);

}  // namespace platform
