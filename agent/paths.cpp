#include "agent/paths.h"

#include <cstring>
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

bool absolute_pattern(const std::string& pattern, std::string& out) {
  std::error_code error;
  std::string directory;
  const bool has_start =
      pattern[0] == '/' || pattern[0] == '*' || platform::is_volume(pattern.substr(0, 2));
  if (!has_start) {
    const std::string here = std::filesystem::current_path(error).native();
    for (const char letter : here) {
      if (std::strchr("*?[\\", letter) != nullptr) directory += '\\';
      directory += letter;
    }
    directory += '/';
  }
  out = std::filesystem::path(directory + pattern).lexically_normal().native();
  while (out.size() > 1 && out.back() == '/') out.pop_back();
  return !error;
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
