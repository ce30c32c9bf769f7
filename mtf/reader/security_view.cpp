#include "mtf/reader/security_view.h"

#include <optional>

#include "services/bytes.h"

namespace MTF {
namespace {

constexpr unsigned short self_relative = 0x8000;  // of the control bits
constexpr std::size_t descriptor_size = 20;
constexpr std::size_t acl_header_size = 8;
constexpr std::size_t ace_header_size = 8;
constexpr std::size_t sid_header_size = 8;
constexpr unsigned char revision = 1;
constexpr unsigned int unix_authority = 88;
enum Unix_Id : unsigned int { unix_owner = 1, unix_group = 2, unix_mode = 3 };

constexpr std::size_t entry_header_size = 8;
constexpr std::size_t entry_alignment = 4;
// A file can't have more: the system lists at most 64 KiB of names, each with its NUL.
constexpr std::size_t most_entries = 32768;

// False unless a whole SID stands at `at`; `value` is set where it is S-1-5-88-<kind>-<value>.
bool read_sid(std::string_view data, std::size_t at, Unix_Id kind,
              std::optional<unsigned int>& value) {
  if (at > data.size() || data.size() - at < sid_header_size) return false;
  const std::string_view sid = data.substr(at);
  const std::size_t count = static_cast<unsigned char>(sid[1]);
  if (static_cast<unsigned char>(sid[0]) != revision) return false;
  if (sid.size() < sid_header_size + 4 * count) return false;
  const std::string_view nt_authority("\0\0\0\0\0\5", 6);
  if (count != 3 || sid.substr(2, 6) != nt_authority) return true;
  const auto part = [&](std::size_t i) {
    return load_le<unsigned int>(sid.data() + sid_header_size + 4 * i);
  };
  if (part(0) == unix_authority && part(1) == kind) value = part(2);
  return true;
}

// Finds the mode among the entries of an ACL.
bool read_acl(std::string_view data, std::size_t at, std::optional<unsigned int>& mode) {
  if (at > data.size() || data.size() - at < acl_header_size) return false;
  const std::size_t size = load_le<unsigned short>(data.data() + at + 2);
  unsigned int entries = load_le<unsigned short>(data.data() + at + 4);
  if (size > data.size() - at) return false;
  std::string_view rest = data.substr(at, size);
  if (rest.size() < acl_header_size) return false;
  for (rest.remove_prefix(acl_header_size); entries > 0; --entries) {
    if (rest.size() < ace_header_size) return false;
    const std::size_t length = load_le<unsigned short>(rest.data() + 2);
    if (length < ace_header_size || length > rest.size()) return false;
    // Entries of kinds that have more in front of their SID don't carry a mode.
    std::optional<unsigned int> found;
    if (read_sid(rest.substr(0, length), ace_header_size, unix_mode, found) && found) mode = found;
    rest.remove_prefix(length);
  }
  return true;
}

}  // namespace

bool read_security(std::string_view data, Stat_Extent& out, bool& known) {
  known = false;
  if (data.size() < descriptor_size || static_cast<unsigned char>(data[0]) != revision ||
      (load_le<unsigned short>(data.data() + 2) & self_relative) == 0) {
    return false;
  }
  const std::size_t owner = load_le<unsigned int>(data.data() + 4);
  const std::size_t group = load_le<unsigned int>(data.data() + 8);
  const std::size_t dacl = load_le<unsigned int>(data.data() + 16);
  std::optional<unsigned int> uid, gid, mode;
  if (owner != 0 && !read_sid(data, owner, unix_owner, uid)) return false;
  if (group != 0 && !read_sid(data, group, unix_group, gid)) return false;
  if (dacl != 0 && !read_acl(data, dacl, mode)) return false;
  known = uid && gid && mode;
  if (known) out = {*gid, *uid, *mode, 0};
  return true;
}

bool read_attributes(std::string_view data, std::vector<Extended_Attribute>& out) {
  out.clear();
  for (;;) {
    if (data.size() < entry_header_size) return false;
    const std::size_t next = load_le<unsigned int>(data.data());
    const std::size_t name = static_cast<unsigned char>(data[5]);
    const std::size_t value = load_le<unsigned short>(data.data() + 6);
    const std::size_t size = entry_header_size + name + 1 + value;
    const std::size_t room = next == 0 ? data.size() : next;
    if (size > room || room > data.size()) return false;
    if (name == 0 || data[entry_header_size + name] != '\0') return false;
    if (out.size() == most_entries) return false;
    out.push_back({std::string(data.substr(entry_header_size, name)),
                   data.substr(entry_header_size + name + 1, value)});
    if (next == 0) return true;
    if (next % entry_alignment != 0) return false;
    data.remove_prefix(next);
  }
}

}  // namespace MTF
