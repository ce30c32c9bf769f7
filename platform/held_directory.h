// A directory that one owner holds for as long as it lives.
#pragma once

#include <string>

namespace platform {

// The lock is on the directory itself and free again when its holder goes away, however it ends; so
// whoever gets the lock of a directory that is left behind knows that its owner is dead. Every
// failure leaves its errno.
class Held_Directory {
 public:
  Held_Directory() = default;
  ~Held_Directory();
  Held_Directory(const Held_Directory&) = delete;
  Held_Directory& operator=(const Held_Directory&) = delete;

  // Makes the directory at the native path `path` as private_directory() does, and holds it. Waits
  // a few seconds for one that is being removed; EBUSY if somebody holds it. Where the file system
  // has no locks it is made all the same, and then nobody takes it over.
  bool make(const std::string& path);

  // Holds a directory of this user that is there already; EWOULDBLOCK if its owner lives, EPERM for
  // somebody else's.
  bool take_over(const std::string& path);

  // Deletes the directory with all in it, and lets go of it. True if none is held.
  bool remove();

  // Empty while none is held.
  const std::string& path() const { return path_; }

 private:
  bool hold(const std::string& path, bool needs_lock);
  void release();

  std::string path_;
  int fd_ = -1;
};

}  // namespace platform
