// A native path of any length in the form that the calls ending in `at` take.
#pragma once

#include <string>

namespace platform {

// Opens the leading directories of a path that is too long for one call, step by step; a path that
// fits costs nothing. `path` must outlive the object.
class Long_Path {
 public:
  explicit Long_Path(const std::string& path);
  ~Long_Path();
  Long_Path(const Long_Path&) = delete;
  Long_Path& operator=(const Long_Path&) = delete;

  // False, with errno, if a leading directory couldn't be opened.
  bool ok() const { return rest_ != nullptr; }

  int dir() const { return dir_; }            // the directory to start from
  const char* rest() const { return rest_; }  // the path from there

 private:
  int dir_;
  const char* rest_;
};

// open(2) of a path of any length, close-on-exec, repeated when a signal interrupts it. -1 with
// errno on failure.
int open_path(const std::string& native, int flags, unsigned mode = 0);

// close(2) that leaves errno alone.
void close_quietly(int fd);

}  // namespace platform
