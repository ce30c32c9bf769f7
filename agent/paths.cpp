#include "agent/paths.h"

#include <filesystem>
#include <system_error>

#include "platform/native_path.h"

namespace agent {
namespace {

bool has_volume(const std::string& path) {
  return path.size() >= 2 && platform::is_volume(path.substr(0, 2)) &&
         (path.size() == 2 || path[2] == '\\');
}

}  // namespace

bool absolute_path(const std::string& path, std::string& out) {
  if (path.empty()) return false;
  if (path[0] == '/' || has_volume(path)) {
    out = path;
    return true;
  }
  std::error_code error;
  const std::string directory = std::filesystem::current_path(error).native();
  if (error) return false;
  out = directory + '/' + path;
  return true;
}

std::string real_path(const std::string& path) {
  std::error_code error;
  const std::filesystem::path real = std::filesystem::canonical(path, error);
  return error ? path : real.native();
}

bool is_link(const std::string& path, std::string& target) {
  std::string native;
  if (!platform::native_path(path, native)) return false;
  std::error_code error;
  target = std::filesystem::read_symlink(native, error).native();
  return !error;
}

}  // namespace agent
