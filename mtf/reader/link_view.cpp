#include "mtf/reader/link_view.h"

#include <algorithm>

#include "platform/native_path.h"
#include "platform/utf16.h"
#include "services/bytes.h"

namespace MTF {
namespace {

constexpr unsigned int symlink_tag = 0xA000000C;
constexpr unsigned int relative_flag = 0x1;
constexpr std::size_t fixed_size = 20;  // up to the names
namespace reparse_at {
enum { tag = 0, data_length = 4, reserved = 6, substitute = 8, print = 12, flags = 16 };
}

std::string text_of(std::string_view utf16) {
  std::wstring units;
  for (std::size_t at = 0; at < utf16.size(); at += sizeof(unsigned short)) {
    units += static_cast<wchar_t>(load_le<unsigned short>(utf16.data() + at));
  }
  return platform::from_utf16(units);
}

// The name whose offset and length stand at `at`; false if it doesn't lie in the data.
bool name_at(std::string_view data, std::size_t at, std::string_view& out) {
  const std::size_t offset = load_le<unsigned short>(data.data() + at);
  const std::size_t size = load_le<unsigned short>(data.data() + at + 2);
  const std::string_view names = data.substr(fixed_size);
  if (offset > names.size() || size > names.size() - offset) return false;
  if (offset % sizeof(unsigned short) != 0 || size % sizeof(unsigned short) != 0) return false;
  out = names.substr(offset, size);
  return true;
}

}  // namespace

bool read_symbolic_link(std::string_view data, std::string& target) {
  if (data.size() < fixed_size) return false;
  const auto word = [&](std::size_t at) { return load_le<unsigned short>(data.data() + at); };
  if (load_le<unsigned int>(data.data() + reparse_at::tag) != symlink_tag) return false;
  if (word(reparse_at::data_length) != data.size() - 8 || word(reparse_at::reserved) != 0) {
    return false;
  }
  std::string_view substitute;
  std::string_view print;
  if (!name_at(data, reparse_at::substitute, substitute) ||
      !name_at(data, reparse_at::print, print) || substitute != print || print.empty()) {
    return false;
  }
  const std::string system = text_of(print);
  // No name holds a slash or a NUL.
  if (system.find_first_of(std::string("/\0", 2)) != std::string::npos) return false;
  target.clear();
  for (std::size_t at = 0; at <= system.size();) {
    const std::size_t end = std::min(system.find('\\', at), system.size());
    target += platform::native_name(system.substr(at, end - at));
    if (end < system.size()) target += '/';
    at = end + 1;
  }
  const auto flags = load_le<unsigned int>(data.data() + reparse_at::flags);
  return flags == (target.front() == '/' ? 0 : relative_flag);
}

bool read_first_name(std::string_view data, std::string& path) {
  if (data.empty() || data.size() % sizeof(unsigned short) != 0) return false;
  path = text_of(data);
  std::string volume = path.substr(0, path.find('\\'));
  return volume.size() < path.size() && platform::is_volume(volume) && path.back() != '\\' &&
         path.find('\0') == std::string::npos;
}

}  // namespace MTF
