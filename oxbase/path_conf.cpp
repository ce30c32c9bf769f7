#include "oxbase/path_conf.h"

#include <cerrno>
#include <cstring>

#include "platform/tree.h"

namespace oxbase {
namespace {

// Locale plays no part in what a name keeps.
constexpr char plain[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-.";

}  // namespace

Path_Conf::Path_Conf(const char* dir, const char* name, bool make, const char* other,
                     unsigned short mode)
    : path_(dir ? dir : "") {
  if (name) add(name);
  if (other) add(other);
  if (!make) return;
  const int error = platform::make_dirs(path_, mode);
  if (error == 0) return;
  path_.clear();
  errno = error;
}

Path_Conf::Path_Conf(const char* dir, bool make, const char* other, unsigned short mode)
    : Path_Conf(dir, nullptr, make, other, mode) {}

void Path_Conf::add(const char* name) {
  static constexpr char digits[] = "0123456789ABCDEF";
  if (!path_.empty() && path_.back() != '/') path_ += '/';
  if (!*name) path_ += '%';
  for (const char* p = name; *p; ++p) {
    const auto byte = static_cast<unsigned char>(*p);
    if (std::strchr(plain, *p) && (p != name || *p != '.')) {
      path_ += *p;
    } else {
      path_ += {'%', digits[byte >> 4], digits[byte & 0xF]};
    }
  }
}

}  // namespace oxbase
