// The machine and the process.
#pragma once

#include <string>

namespace platform {

// The machine's name, empty if it has none.
std::string machine_name();

// The name of a numeric id, which may have been widened from 32 bits with its sign; empty if there
// is none. Safe on several threads.
std::string user_name(unsigned long long id);
std::string group_name(unsigned long long id);

// The allocation unit of the file system under a system path, in bytes; 4096 for one that isn't a
// power of two. False with errno on failure.
bool filesystem_block_size(const std::string& system_path, unsigned int& size);

unsigned int processor_count();  // usable by this process, at least 1
unsigned int current_uid();      // the effective user

// While an object lives, the files that the process makes are closed to everybody but its own user,
// for whom the mode of each still counts.
class Private_Files {
 public:
  Private_Files();
  ~Private_Files();
  Private_Files(const Private_Files&) = delete;
  Private_Files& operator=(const Private_Files&) = delete;

 private:
  const unsigned int before_;
};

}  // namespace platform
