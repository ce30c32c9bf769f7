// A directory that holds pieces. It is opened once, and everything in it is reached through that
// handle, so that what happens to its path later can't lead a piece astray.
#pragma once

#include <string>
#include <vector>

#include "platform/lock_file.h"
#include "platform/piece_file.h"

namespace platform {

// Names are those of plain entries: one with a slash in it, an empty one, `.` and `..` are refused
// with EINVAL. No link at a name is followed. Every failure leaves its errno. May be used from
// several threads once it is open.
class Storage_Directory {
 public:
  Storage_Directory() = default;
  ~Storage_Directory();
  Storage_Directory(const Storage_Directory&) = delete;
  Storage_Directory& operator=(const Storage_Directory&) = delete;

  // True for a name that an entry can have here.
  static bool is_plain(const std::string& name);

  // Opens the directory at the native path `path`. Where `make` is set and it is missing, it is
  // made for its owner alone and brought to the disk; ENOENT if the one above it is missing too,
  // as where a disk isn't mounted.
  bool open(const std::string& path, bool make);

  // True if this process may create and remove entries.
  bool is_writable() const;

  // A text that names this directory: the same by every path that leads here, and no other's.
  bool identity(std::string& out) const;

  // The names of all entries but `.` and `..`, in any order.
  bool names(std::vector<std::string>& out) const;

  // Creates the file `name`, mode 0600; EEXIST if there is anything of that name.
  bool create(const std::string& name, Piece_File& out) const;

  // Opens the regular file `name` for reading; EINVAL for anything else of that name.
  bool open_read(const std::string& name, Piece_File& out) const;

  // True if there is an entry `name`, of any kind.
  bool exists(const std::string& name) const;

  // Bytes in the file `name`; -1 on failure.
  long long size(const std::string& name) const;

  // Gives `from` the name `to`, which must be free.
  bool rename(const std::string& from, const std::string& to) const;

  bool remove(const std::string& name) const;

  // Returns when the names are on the disk.
  bool sync() const;

  // Takes the lock `name`, making its file where it is missing; EWOULDBLOCK if another process, or
  // another Lock_File of this one, holds it.
  bool lock(const std::string& name, Lock_File& out) const;

 private:
  int fd_ = -1;
};

}  // namespace platform
