#include "platform/native_path.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace platform {
namespace {

// U+F05B and U+F05C in UTF-8 share their first two bytes.
constexpr char mark_1 = '\xEF';
constexpr char mark_2 = '\x81';
constexpr char escape_3 = '\x9B';
constexpr char backslash_3 = '\x9C';

bool is_letter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

bool fail(int error) {
  errno = error;
  return false;
}

// The third byte of a U+F05B or U+F05C at the start of a text, else 0.
char mark_at(const char* text, std::size_t size) {
  if (size < 3 || text[0] != mark_1 || text[1] != mark_2) return 0;
  return text[2] == escape_3 || text[2] == backslash_3 ? text[2] : '\0';
}

char mark_at(const std::string& text, std::size_t at) {
  return mark_at(text.data() + at, text.size() - at);
}

bool has_special(const char* text, std::size_t size) {
  return std::memchr(text, '\\', size) || std::memchr(text, mark_1, size);
}

void append_system_name(const char* native, std::size_t size, std::string& out) {
  if (!has_special(native, size)) {
    out.append(native, size);
    return;
  }
  for (std::size_t at = 0; at < size; ++at) {
    if (native[at] == '\\') {
      out.append({mark_1, mark_2, backslash_3});
      continue;
    }
    if (mark_at(native + at, size - at)) out.append({mark_1, mark_2, escape_3});
    out += native[at];
  }
}

// Takes the mark at `at` back to native bytes at `out`, which moves behind them; never more than
// the bytes taken, which are returned.
std::size_t unmark(const std::string& text, std::size_t at, char mark, char*& out) {
  if (mark == backslash_3) {
    *out++ = '\\';
    return 3;
  }
  const std::size_t escape = mark_at(text, at + 3) ? 3 : 0;
  text.copy(out, 3, at + escape);
  out += 3;
  return 3 + escape;
}

// Adds the native form of `text` if only the separators differ, as with most paths; false where
// more has to be done.
bool append_plain(const char* text, std::size_t size, std::string& native) {
  if (std::memchr(text, '/', size) || std::memchr(text, '\0', size) ||
      std::memchr(text, mark_1, size)) {
    return false;
  }
  const std::size_t before = native.size();
  native.append(text, size);
  char* const end = &native[native.size()];
  char* at = &native[before];
  while ((at = static_cast<char*>(std::memchr(at, '\\', static_cast<std::size_t>(end - at))))) {
    *at++ = '/';
    // No name follows. Such a separator has to go, which is not done here.
    if (at == end || *at == '\\') {
      native.resize(before);
      return false;
    }
  }
  return true;
}

// Adds what follows the volume of a system path, from its first separator on. False for a slash or
// NUL in a name.
bool append_native(const std::string& path, std::size_t at, std::string& native) {
  if (append_plain(path.data() + at, path.size() - at, native)) return true;
  const std::size_t before = native.size();
  native.resize(before + path.size() - at);
  char* out = &native[before];
  // A separator is held back until a name follows, so that doubled and trailing ones vanish.
  bool separator = false;
  while (at < path.size()) {
    const char c = path[at];
    if (c == '\\') {
      separator = true;
      ++at;
      continue;
    }
    if (c == '/' || c == '\0') return false;
    if (separator) *out++ = '/';
    separator = false;
    if (const char mark = c == mark_1 ? mark_at(path, at) : '\0') {
      at += unmark(path, at, mark, out);
    } else {
      *out++ = c;
      ++at;
    }
  }
  native.resize(static_cast<std::size_t>(out - native.data()));
  return true;
}

// Where the path begins behind `\\?\`.
std::size_t prefix_length(const std::string& path) {
  return path.compare(0, 4, "\\\\?\\") == 0 ? 4 : 0;
}

bool is_drive_at(const std::string& path, std::size_t at) {
  return path.size() >= at + 2 && is_letter(path[at]) && path[at + 1] == ':' &&
         (path.size() == at + 2 || path[at + 2] == '\\');
}

// Adds one component to the normal system form in `out`, whose volume has `volume_size` bytes.
void add_component(const std::string& name, bool native, std::size_t volume_size,
                   std::string& out) {
  if (name.empty() || name == ".") return;
  if (name == "..") {
    if (out.size() > volume_size) out.resize(out.rfind('\\'));
    return;
  }
  out += '\\';
  if (native) {
    append_system_name(name.data(), name.size(), out);
  } else {
    out += name;
  }
}

}  // namespace

Volume_Roots& Volume_Roots::instance() {
  static Volume_Roots roots;
  return roots;
}

bool Volume_Roots::set(const std::string& volume, const std::string& native_dir) {
  if (volume.size() != 2 || !is_volume(volume)) return fail(EINVAL);
  if (native_dir.empty() || native_dir[0] != '/') return fail(EINVAL);
  const std::size_t last = native_dir.find_last_not_of('/');
  roots_[static_cast<unsigned char>(volume[0])] =
      last == std::string::npos ? "/" : native_dir.substr(0, last + 1);
  return true;
}

bool Volume_Roots::find(const std::string& volume, std::string& native_dir) const {
  if (volume.size() != 2 || !is_volume(volume)) return false;
  const std::string& root = roots_[static_cast<unsigned char>(volume[0])];
  if (root.empty()) return false;
  native_dir = root;
  return true;
}

void Volume_Roots::clear() {
  roots_.fill(std::string());
}

bool is_volume(const std::string& text) {
  return text == "/" || (text.size() == 2 && is_letter(text[0]) && text[1] == ':');
}

std::string system_name(const std::string& native_name) {
  std::string out;
  append_system_name(native_name.data(), native_name.size(), out);
  return out;
}

void system_name(const char* native_name, std::string& out) {
  out.clear();
  append_system_name(native_name, std::strlen(native_name), out);
}

std::string native_name(const std::string& system_name) {
  if (!std::memchr(system_name.data(), mark_1, system_name.size())) return system_name;
  std::string native(system_name.size(), '\0');
  char* out = &native[0];
  for (std::size_t at = 0; at < system_name.size();) {
    if (const char mark = mark_at(system_name, at)) {
      at += unmark(system_name, at, mark, out);
    } else {
      *out++ = system_name[at++];
    }
  }
  native.resize(static_cast<std::size_t>(out - native.data()));
  return native;
}

bool native_path(const std::string& system_path, std::string& native) {
  const std::size_t begin = prefix_length(system_path);
  const std::size_t end = std::min(system_path.find('\\', begin), system_path.size());
  if (end - begin == 1 && system_path[begin] == '/') {
    native.clear();
  } else if (is_drive_at(system_path, begin)) {
    if (!Volume_Roots::instance().find(system_path.substr(begin, 2), native)) return fail(ENODEV);
    if (native == "/") native.clear();
  } else {
    return fail(EINVAL);
  }
  if (!append_native(system_path, end, native)) return fail(EINVAL);
  if (native.empty()) native = "/";
  return true;
}

bool system_path(const std::string& path, std::string& out) {
  std::size_t at = prefix_length(path);
  if (path.size() == at || path.find('\0') != std::string::npos) return fail(EINVAL);
  const bool drive = is_drive_at(path, at);
  const bool native = !drive && path.compare(at, 2, "/\\") != 0;
  if (native && (at != 0 || path[0] != '/')) return fail(EINVAL);
  const std::size_t volume_size = drive ? 2 : 1;
  const char separator = native ? '/' : '\\';
  std::string normal(path, at, volume_size);
  at += volume_size;
  if (!native && path.find('/', at) != std::string::npos) return fail(EINVAL);
  while (at < path.size()) {
    const std::size_t end = std::min(path.find(separator, at), path.size());
    add_component(path.substr(at, end - at), native, volume_size, normal);
    at = end + 1;
  }
  out.swap(normal);
  return true;
}

std::string display_path(const std::string& system_path) {
  std::string native;
  return native_path(system_path, native) ? native : system_path;
}

}  // namespace platform
