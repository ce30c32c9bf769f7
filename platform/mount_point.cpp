#include "platform/mount_point.h"

#include <mntent.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace platform {

// The first call of this kind unmounts nothing: EAGAIN says that nobody uses it.
bool is_in_use(const std::string& directory) {
  return ::umount2(directory.c_str(), MNT_EXPIRE | UMOUNT_NOFOLLOW) != 0 && errno == EBUSY;
}

bool is_mounted(const std::string& directory, const std::string& type) {
  const std::unique_ptr<char, void (*)(void*)> place(::realpath(directory.c_str(), nullptr),
                                                     std::free);
  const std::unique_ptr<FILE, int (*)(FILE*)> mounts(::setmntent("/proc/self/mounts", "r"),
                                                     ::endmntent);
  bool found = false;
  while (place != nullptr && mounts != nullptr) {
    const mntent* const mount = ::getmntent(mounts.get());
    if (mount == nullptr) break;
    if (std::strcmp(mount->mnt_dir, place.get()) == 0) found = type == mount->mnt_type;
  }
  return found;
}

}  // namespace platform
