// Making and removing local directories, by native paths.
#pragma once

#include <string>

namespace platform {

// Deletes the file, link or directory tree at `native`. No link is followed, and the open handles
// don't grow with the depth. Deletes what it can; false, with the first errno, if something was
// left. What isn't there is gone already: true. Doesn't throw.
bool remove_tree(const std::string& native);

// Makes the directory with all above it that are missing, each with `mode` less the process's
// mask. Returns 0, also where it is there already, or the errno.
int make_dirs(const std::string& native, unsigned int mode);

// Makes the directory alone, below one that is there, and returns when its name is on the disk: 0,
// also where it is there already, or the errno, which is ENOENT without the one above it.
int make_last_dir(const std::string& native, unsigned int mode);

// Makes the directory `native`, whose parent must be there, for this user alone. One that is there
// already is taken if it is the user's own, and closed to others. False with errno EPERM for
// somebody else's, or for a link.
bool private_directory(const std::string& native);

// What would let another user put something in place of the files that this user has in a
// directory.
enum class Danger {
  none,     // it is the user's own, or root's with the sticky bit, or it isn't there
  link,     // it is a symbolic link
  foreign,  // it is somebody else's
  open,     // everybody may rename what is in it
};
Danger danger_of(const std::string& native);

}  // namespace platform
