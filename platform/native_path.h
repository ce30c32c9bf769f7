// The system's paths and the machine's.
//
// Inside the system a path is `VOLUME\dir\name`. A volume is `/`, the machine's root directory, or
// a letter and a colon, whose directory a host sets in Volume_Roots. A native name is bytes without
// NUL and slash: in its system name a backslash is carried as U+F05C, and a U+F05B or U+F05C of its
// own has a U+F05B in front of it. All other bytes stay, valid UTF-8 or not.
#pragma once

#include <array>
#include <string>

namespace platform {

// The directories of the volumes `X:`. Filled before a job and only read while one runs.
class Volume_Roots {
 public:
  static Volume_Roots& instance();

  // Makes `native_dir`, an absolute path, the root of `volume`. False, with errno EINVAL, for a
  // volume that isn't a letter and a colon or a directory that isn't absolute.
  bool set(const std::string& volume, const std::string& native_dir);

  // The root of `volume` without a trailing slash; false if it has none.
  bool find(const std::string& volume, std::string& native_dir) const;

  void clear();

 private:
  std::array<std::string, 128> roots_;  // by letter; empty where none is set
};

// True for `/` and for a letter with a colon.
bool is_volume(const std::string& text);

// The system name of one component of a native path, and back.
std::string system_name(const std::string& native_name);
void system_name(const char* native_name, std::string& out);
std::string native_name(const std::string& system_name);

// The native path of a system path, which may have `\\?\` in front. False with errno ENODEV for a
// volume without a root, EINVAL for what isn't a system path, a slash or NUL inside a name
// included.
bool native_path(const std::string& system_path, std::string& native);

// The normal system form of a system path or an absolute native path: doubled and trailing
// separators, `.` and `..` are gone, a volume stands alone. A path is in system form when it begins
// with a letter and a colon before a backslash or the end, or with `/\`. False with errno EINVAL
// for an empty or relative path. `out` may be `path`.
bool system_path(const std::string& path, std::string& out);

// The native path of `system_path` for a message, or `system_path` itself where it has none.
std::string display_path(const std::string& system_path);

}  // namespace platform
