// A file system of a test's own with little room.
#pragma once

#include <sys/mount.h>
#include <sys/statvfs.h>

#include <string>

namespace test_support {

// Where the machine lets nobody mount, there is none: `is_there()` tells.
class Small_Disk {
 public:
  // On the directory `path`, with `options` such as `size=64k` or `nr_inodes=7`.
  Small_Disk(const std::string& path, const std::string& options) : path_(path) {
    there_ = ::mount("tmpfs", path_.c_str(), "tmpfs", 0, options.c_str()) == 0;
  }
  ~Small_Disk() {
    if (there_) ::umount2(path_.c_str(), MNT_DETACH);
  }
  Small_Disk(const Small_Disk&) = delete;
  Small_Disk& operator=(const Small_Disk&) = delete;

  bool is_there() const { return there_; }

  // What is free: blocks and files. Counts what has no name but is still open.
  std::pair<unsigned long long, unsigned long long> room() const {
    struct statvfs stat {};
    ::statvfs(path_.c_str(), &stat);
    return {stat.f_bfree, stat.f_ffree};
  }

 private:
  const std::string path_;
  bool there_;
};

}  // namespace test_support
