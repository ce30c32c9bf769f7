#include "services/file_path.h"

#include <algorithm>
#include <cerrno>

#include "platform/native_path.h"

namespace MTF_FS {
namespace {

constexpr char system_separator = '\\';

bool fail(int error) {
  errno = error;
  return false;
}

// The size of the volume at the start of a path, 0 if there is none.
std::size_t volume_size(const std::string& path, char separator) {
  std::size_t size = 0;
  if (path.size() >= 2 && path[1] == ':' && path[0] != separator) {
    size = 2;
  } else {
    while (size < path.size() && path[size] == '/') ++size;
    // If the slash is the separator too, `/a` has no further one between volume and directory.
    if (separator == '/') return size;
  }
  return size == path.size() || path[size] == separator ? size : 0;
}

// The part below the volume, without separators around it.
bool split(const std::string& path, char separator, std::size_t& volume, std::size_t& begin,
           std::size_t& end) {
  volume = volume_size(path, separator);
  if (volume == 0) return fail(EINVAL);
  begin = std::min(path.find_first_not_of(separator, volume), path.size());
  end = path.size();
  while (end > begin && path[end - 1] == separator) --end;
  return true;
}

// Starts `out` with the system form of a volume or native directory.
bool start(const std::string& volume, oxbase::Path_T<char>& out) {
  out.clear();
  if (volume.empty()) return fail(EINVAL);
  std::string system = volume;
  if (!platform::is_volume(volume) && !platform::system_path(volume, system)) return false;
  out /= system;
  return true;
}

// Starts `out` with the volume in use. A volume that isn't replaced is taken as it stands: a source
// of the host may have names of its own.
bool start_in_use(const std::string& cur_vol, const std::string& shadow_vol,
                  oxbase::Path_T<char>& out) {
  if (!shadow_vol.empty()) return start(shadow_vol, out);
  out.clear();
  if (cur_vol.empty()) return fail(EINVAL);
  out /= cur_vol;
  return true;
}

}  // namespace

bool is_root_path(const std::string& path) {
  if (path.empty()) return false;
  if (path.find_first_not_of('/') == std::string::npos) return true;
  return path.size() >= 2 && path[1] == ':' &&
         path.find_first_not_of(system_separator, 2) == std::string::npos;
}

bool path_component(const std::string& path, char separator, std::string& volume,
                    std::string& dir) {
  std::size_t size, begin, end;
  if (!split(path, separator, size, begin, end)) return false;
  volume.assign(path, 0, size);
  dir.assign(path, begin, end - begin);
  if (!dir.empty()) dir += separator;
  return true;
}

bool path_component(const std::string& path, char separator, std::string& volume, std::string& dir,
                    std::string& name) {
  std::size_t size, begin, end;
  if (!split(path, separator, size, begin, end)) return false;
  if (begin == end) return fail(EINVAL);
  const std::size_t last = path.rfind(separator, end - 1);
  const std::size_t leaf = last == std::string::npos || last < begin ? begin : last + 1;
  volume.assign(path, 0, size);
  dir.assign(path, begin, leaf - begin);
  name.assign(path, leaf, end - leaf);
  return true;
}

std::string entry_path(const std::string& dir, const std::string& name) {
  oxbase::Path_T<char> path(system_separator, false);
  path /= dir;
  path /= name;
  return path.str();
}

std::size_t common_parent(const std::string& current, const std::string& wanted) {
  const std::size_t shorter = std::min(current.size(), wanted.size());
  std::size_t shared = 0;
  for (std::size_t at = 0; at < shorter && current[at] == wanted[at]; ++at) {
    if (current[at] == system_separator) shared = at + 1;
  }
  const bool is_ancestor = shared == wanted.size() && current.size() > wanted.size();
  if (!is_ancestor || shared == 0) return shared;
  const std::size_t before =
      shared < 2 ? std::string::npos : wanted.rfind(system_separator, shared - 2);
  return before == std::string::npos ? 0 : before + 1;
}

bool replace_volume(const std::string& path, const std::string& volume, oxbase::Path_T<char>& out) {
  std::size_t size, begin, end;
  if (!split(path, system_separator, size, begin, end)) return false;
  if (!start(volume, out)) return false;
  out.append(path.data() + begin, end - begin);
  return true;
}

bool replace_volume(const std::string& cur_vol, const std::string& cur_dir,
                    const std::string& shadow_vol, oxbase::Path_T<char>& out) {
  if (!start_in_use(cur_vol, shadow_vol, out)) return false;
  std::size_t size = cur_dir.size();
  while (size > 0 && cur_dir[size - 1] == system_separator) --size;
  out.append(cur_dir.data(), size);
  return true;
}

bool replace_volume(const std::string& cur_vol, const std::string& cur_dir, const std::string& name,
                    const std::string& shadow_vol, oxbase::Path_T<char>& out) {
  if (!start_in_use(cur_vol, shadow_vol, out)) return false;
  out /= cur_dir;
  out /= name;
  return true;
}

}  // namespace MTF_FS
