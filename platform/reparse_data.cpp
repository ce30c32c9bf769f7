#include "platform/reparse_data.h"

#include <algorithm>

#include "platform/little_endian.h"
#include "platform/native_path.h"
#include "platform/utf16.h"

namespace platform {
namespace {

constexpr unsigned int tag_symlink = 0xA000000C;
constexpr unsigned int flag_relative = 0x1;
constexpr std::size_t names_header = 12;  // the lengths and offsets of the names, and the flags

std::wstring system_target(const std::string& target) {
  std::string system;
  for (std::size_t at = 0; at <= target.size();) {
    const std::size_t end = std::min(target.find('/', at), target.size());
    system += system_name(target.substr(at, end - at));
    if (end < target.size()) system += '\\';
    at = end + 1;
  }
  return to_utf16(system);
}

}  // namespace

void append_reparse_data(const std::string& target, std::string& out) {
  const std::wstring name = system_target(target);
  const auto size = static_cast<unsigned short>(name.size() * sizeof(unsigned short));
  const bool relative = target.empty() || target.front() != '/';
  append_little_endian(out, tag_symlink);
  append_little_endian(out, static_cast<unsigned short>(names_header + 2 * size));
  append_little_endian(out, static_cast<unsigned short>(0));
  // Substitute name and print name, one behind the other.
  append_little_endian(out, static_cast<unsigned short>(0));
  append_little_endian(out, size);
  append_little_endian(out, size);
  append_little_endian(out, size);
  append_little_endian(out, relative ? flag_relative : 0U);
  for (int copy = 0; copy < 2; ++copy) {
    for (const wchar_t unit : name) append_little_endian(out, static_cast<unsigned short>(unit));
  }
}

}  // namespace platform
