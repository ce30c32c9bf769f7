#include "oxbase/path.h"

#include <cstdlib>
#include <cstring>

namespace oxbase {
namespace {

// The size of a path without its trailing separators.
std::size_t trimmed(const char* path, std::size_t size, char separator) {
  while (size > 0 && path[size - 1] == separator) --size;
  return size;
}

// Where the last part of a trimmed path begins.
std::size_t last_part(const char* path, std::size_t size, char separator) {
  while (size > 0 && path[size - 1] != separator) --size;
  return size;
}

}  // namespace

void expand_environment_strings(std::string& text) {
  std::size_t at = 0;
  while ((at = text.find('%', at)) != std::string::npos) {
    const std::size_t end = text.find('%', at + 1);
    if (end == std::string::npos) return;
    const char* value = std::getenv(text.substr(at + 1, end - at - 1).c_str());
    if (value) {
      text.replace(at, end + 1 - at, value);
      at += std::strlen(value);
    } else {
      at = end;
    }
  }
}

std::string basename(const std::string& path, char separator) {
  const std::size_t size = trimmed(path.data(), path.size(), separator);
  const std::size_t start = last_part(path.data(), size, separator);
  return path.substr(start, size - start);
}

std::string dirname_string(const char* path, char separator) {
  const std::size_t size = trimmed(path, std::strlen(path), separator);
  const std::size_t start = last_part(path, size, separator);
  return std::string(path, trimmed(path, start, separator));
}

}  // namespace oxbase
