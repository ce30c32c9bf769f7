// A lock that is free again when its holder goes away, however it ends.
#pragma once

namespace platform {

class Lock_File {
 public:
  Lock_File() = default;
  ~Lock_File();
  Lock_File(const Lock_File&) = delete;
  Lock_File& operator=(const Lock_File&) = delete;

  // Gives the lock back. The file stays: taking it away would let two holders lock two files of
  // one name.
  void release();

 private:
  friend class Storage_Directory;

  // Locks the open file `fd`, which it owns from then on; false with errno EWOULDBLOCK, and the
  // file closed, if it is locked.
  bool take(int fd);

  int fd_ = -1;
};

}  // namespace platform
