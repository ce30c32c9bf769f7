// A working file mapped into memory that grows without moving.
#pragma once

#include <cstddef>
#include <string>

namespace platform {

// The addresses are set aside once; the file's blocks are allocated before they are mapped, so that
// a full disk is a failure of grow() and never a signal. The memory starts as zero. One thread at a
// time may change it.
class Mapping {
 public:
  Mapping() = default;
  ~Mapping();
  Mapping(const Mapping&) = delete;
  Mapping& operator=(const Mapping&) = delete;

  // Makes a new empty file, open and not mapped yet; the one before is closed. create() makes it
  // at `native`, in place of what is there, and takes the name away at once unless `keep_name`;
  // create_in() makes one without a name in a directory. False with errno.
  bool create(const std::string& native, bool keep_name);
  bool create_in(const std::string& native_directory);

  // Makes at least `size` bytes usable, and more ahead in segments. Addresses stay. False with
  // errno, ENOSPC on a full disk and ENOMEM past 64 GiB or what the process could set aside; what
  // was mapped is then as before.
  bool grow(unsigned long long size);

  // Takes what is mapped out of the process's memory; it stays in the file and comes back when it
  // is next touched. Other threads may read and write it meanwhile.
  void unload();

  void close();

  bool is_open() const { return fd_ >= 0; }
  char* data() const { return base_; }               // null before the first grow()
  unsigned long long size() const { return size_; }  // bytes usable

 private:
  bool reserve();
  bool extend(unsigned long long size);

  int fd_ = -1;
  char* base_ = nullptr;
  unsigned long long reserved_ = 0;
  unsigned long long size_ = 0;
};

}  // namespace platform
