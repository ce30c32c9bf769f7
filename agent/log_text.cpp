#include "agent/log_text.h"

#include <algorithm>
#include <cstring>

#include "platform/native_path.h"

namespace agent {
namespace {

constexpr const char* long_prefix = "\\\\?\\";
constexpr std::size_t long_prefix_size = 4;

bool is_path_at(const std::string& line, std::size_t at) {
  return line[at] == '/' || line.compare(at, long_prefix_size, long_prefix) == 0 ||
         (line.compare(at + 1, 2, ":\\") == 0 && platform::is_volume(line.substr(at, 2)));
}

// Where the path of `line` begins, behind a space, a quote or an equals sign; its size without one.
std::size_t path_begin(const std::string& line) {
  for (std::size_t at = 1; at < line.size(); ++at) {
    if (std::memchr(" '=", line[at - 1], 3) && is_path_at(line, at)) return at;
  }
  return line.size();
}

// Where the words behind a path begin: "' is corrupt" or ", errno=13". A name may
// hold such words itself, so the result serves to tell kinds of lines apart and for nothing else.
std::size_t path_end(const std::string& line, std::size_t begin) {
  if (line[begin - 1] == '\'') return std::max(line.rfind('\''), begin);
  std::size_t at = line.rfind(", ");
  for (; at != std::string::npos && at > begin; at = line.rfind(", ", at - 1)) {
    const std::size_t key = line.find_first_not_of("abcdefghijklmnopqrstuvwxyz_", at + 2);
    if (key != std::string::npos && key != at + 2 && line[key] == '=') return at;
  }
  return line.size();
}

}  // namespace

std::string with_native_path(const std::string& line) {
  const std::size_t begin = path_begin(line);
  if (line.compare(begin, 1, "/") == 0 && line.compare(begin + 1, 1, "\\") != 0) return line;
  // A name has no slash, so the path ends ahead of the next one, as of "Input/output error". The
  // words between the two have nothing that a native path shows in another way.
  const std::size_t volume =
      line.compare(begin, long_prefix_size, long_prefix) == 0 ? begin + long_prefix_size : begin;
  const std::size_t end = std::min(line.find('/', volume + 1), line.size());
  return line.substr(0, begin) + platform::display_path(line.substr(begin, end - begin)) +
         line.substr(end);
}

std::string kind_of(const std::string& line) {
  const std::size_t begin = path_begin(line);
  if (begin == line.size()) return line;
  return line.substr(0, begin) + "..." + line.substr(path_end(line, begin));
}

}  // namespace agent
