#include "platform/mount_point.h"

#include <sys/mount.h>

#include <cerrno>

namespace platform {

int unmount(const std::string& directory) {
  return ::umount2(directory.c_str(), UMOUNT_NOFOLLOW) == 0 ? 0 : errno;
}

}  // namespace platform
