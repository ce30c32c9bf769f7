#include "platform/extended_attributes.h"

#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/little_endian.h"

namespace platform {
namespace {

constexpr std::size_t most_names = 65536;  // bytes, the kernel's XATTR_LIST_MAX
constexpr std::size_t longest_value = 65535;
constexpr std::size_t entry_alignment = 4;

// The kernel makes and clears a buffer of the size that a caller offers, so most calls offer
// little.
constexpr std::size_t usual_size = 1024;

// Calls `read` with room for the usual size, and again with all the room that there is where that
// is too little. Gives what `read` gave.
template <class Read>
ssize_t read_small_first(std::vector<char>& buffer, std::size_t most, Read read) {
  buffer.resize(most);
  const ssize_t size = read(buffer.data(), usual_size);
  return size < 0 && errno == ERANGE ? read(buffer.data(), most) : size;
}

// The attributes of an O_PATH descriptor can be read only by its path in /proc.
std::string own_name(int fd) {
  return "/proc/self/fd/" + std::to_string(fd);
}

ssize_t list_names(int fd, char* names, std::size_t room) {
  const ssize_t size = ::flistxattr(fd, names, room);
  return size >= 0 || errno != EBADF ? size : ::listxattr(own_name(fd).c_str(), names, room);
}

ssize_t get_value(int fd, const char* name, char* value, std::size_t room) {
  const ssize_t size = ::fgetxattr(fd, name, value, room);
  return size >= 0 || errno != EBADF ? size : ::getxattr(own_name(fd).c_str(), name, value, room);
}

}  // namespace

void Extended_Attributes::append(int fd, std::string& out) {
  if (!list(fd)) return;
  sorted_.clear();
  for (std::size_t at = 0; at < names_size_; at += std::strlen(&names_[at]) + 1) {
    sorted_.push_back(&names_[at]);
  }
  std::sort(sorted_.begin(), sorted_.end(),
            [](const char* a, const char* b) { return std::strcmp(a, b) < 0; });
  const std::size_t start = out.size();
  std::size_t last = std::string::npos;
  for (const char* name : sorted_) {
    const std::size_t end = out.size();
    out.resize(start + (end - start + entry_alignment - 1) / entry_alignment * entry_alignment);
    const std::size_t entry = out.size();
    if (!append_one(fd, name, out)) {
      out.resize(end);
      continue;
    }
    if (last != std::string::npos) {
      store_little_endian(&out[last], static_cast<unsigned int>(entry - last));
    }
    last = entry;
  }
}

bool Extended_Attributes::list(int fd) {
  const ssize_t size = read_small_first(names_, most_names, [fd](char* names, std::size_t room) {
    return list_names(fd, names, room);
  });
  if (size < 0 && errno != EOPNOTSUPP) left_out_("", std::strerror(errno));
  names_size_ = size > 0 ? static_cast<std::size_t>(size) : 0;
  return names_size_ != 0;
}

bool Extended_Attributes::append_one(int fd, const char* name, std::string& out) {
  const std::size_t length = std::strlen(name);
  const ssize_t size = read_small_first(
      value_, longest_value + 1,
      [fd, name](char* value, std::size_t room) { return get_value(fd, name, value, room); });
  if (size < 0 || static_cast<std::size_t>(size) > longest_value) {
    // An attribute that was removed since the list was made isn't told as left out.
    if (size < 0 && errno == ENODATA) return false;
    left_out_(name, size < 0 && errno != ERANGE ? std::strerror(errno) : "longer than 65535 bytes");
    return false;
  }
  append_little_endian(out, 0U);  // distance to the next entry, 0 for the last
  out += '\0';                    // flags
  append_little_endian(out, static_cast<unsigned char>(length));
  append_little_endian(out, static_cast<unsigned short>(size));
  out.append(name, length + 1);
  out.append(value_.data(), static_cast<std::size_t>(size));
  return true;
}

}  // namespace platform
