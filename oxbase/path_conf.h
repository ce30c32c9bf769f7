// The paths of the job's local directories.
#pragma once

#include <string>

namespace oxbase {

// A native local directory path. `name` and `other`, either of which may be null, become one
// component each: every byte outside `A-Za-z0-9._-`, and a leading dot, is written as `%XX`, so
// that no name can lead out of `dir`; an empty name is a lone `%`, so that it can't mean `dir`
// itself.
class Path_Conf {
 public:
  // With `make` the directory is made, with `mode`, if it isn't there.
  Path_Conf(const char* dir, const char* name, bool make, const char* other, unsigned short mode);
  Path_Conf(const char* dir, bool make, const char* other, unsigned short mode);

  // Empty, with errno, where the directory couldn't be made.
  const std::string& str() const { return path_; }

 private:
  void add(const char* name);

  std::string path_;
};

}  // namespace oxbase
