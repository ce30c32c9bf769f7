#include "services/source_list.h"

#include <ace/Log_Msg.h>
#include <ace/OS_NS_errno.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "oxbase/directory_iterator.h"
#include "oxbase/path.h"
#include "platform/native_path.h"
#include "services/file_path.h"
#include "services/settings.h"

namespace MTF {
namespace {

constexpr char separator = '\\';
constexpr unsigned int type_mask = 0xF000;
constexpr unsigned int directory_type = 0x4000;

bool is_directory(const source_entry& entry) {
  return (entry.stat.st_mode & type_mask) == directory_type;
}

// True if `path` is `top` or lies below it; a separator at the end of `top` doesn't matter.
bool lies_below(const std::string& path, const std::string& top, char separator) {
  const std::size_t size = !top.empty() && top.back() == separator ? top.size() - 1 : top.size();
  return path.compare(0, size, top, 0, size) == 0 &&
         (path.size() == size || path[size] == separator);
}

bool examine(const std::string& path, const std::map<std::string, std::string>* volume_map,
             _stat64& stat) {
  std::string look_at = path;
  if (volume_map != nullptr) {
    const auto shadow = volume_map->find(path.substr(0, path.find(separator)));
    if (shadow != volume_map->end()) {
      oxbase::Path_T<char> under_shadow(separator, false);
      if (MTF_FS::replace_volume(path, shadow->second, under_shadow)) look_at = under_shadow.str();
    }
  }
  // The root of a volume, or the shadow in its place, may be a link and is still a directory.
  const int error = MTF_FS::is_root_path(path) ? platform::stat_target(look_at, stat)
                                               : platform::stat_link(look_at, stat);
  if (error == 0) return true;
  errno = error;
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to examine source, path=%C, errno=%d, %m\n"), path.c_str(),
             error));
  return false;
}

bool resolve(const std::string& source, const std::map<std::string, std::string>* volume_map,
             source_entry& entry) {
  if (!platform::system_path(source, entry.path)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Source is no absolute path, path=%C\n"), source.c_str()));
    return false;
  }
  if (!examine(entry.path, volume_map, entry.stat)) return false;
  const std::size_t last = entry.path.rfind(separator);
  if (last == std::string::npos) {
    entry.name = entry.path;
    return true;
  }
  entry.name = entry.path.substr(0, last + 1);
  if (is_directory(entry)) entry.path += separator;
  return true;
}

bool normalise(std::list<std::string>& exclude_list) {
  for (std::string& entry : exclude_list) {
    std::string path;
    if (!platform::system_path(entry, path)) {
      ACE_ERROR(
          (LM_ERROR, ACE_TEXT("Exclude entry is no absolute path, path=%C\n"), entry.c_str()));
      return false;
    }
    entry = path;
  }
  return true;
}

// The order of the walk for two full paths: up to the first component that differs a directory
// comes behind a file; else the names decide.
bool walked_before(const source_entry& a, const source_entry& b, char sep) {
  std::size_t at = 0;
  for (;;) {
    // A directory comes ahead of all that lies below it.
    if (at == a.path.size() || at == b.path.size()) return a.path.size() < b.path.size();
    const std::size_t end_a = std::min(a.path.find(sep, at), a.path.size());
    const std::size_t end_b = std::min(b.path.find(sep, at), b.path.size());
    const int order = a.path.compare(at, end_a - at, b.path, at, end_b - at);
    if (order == 0 && end_a < a.path.size() && end_b < b.path.size()) {
      at = end_a + 1;
      continue;
    }
    const bool inner_a = end_a < a.path.size() || is_directory(a);
    const bool inner_b = end_b < b.path.size() || is_directory(b);
    if (order != 0 && at > 0 && inner_a != inner_b) return inner_b;
    return order != 0 ? order < 0 : a.path.size() < b.path.size();
  }
}

// A file, or a directory that is excluded, covers no other source.
void drop_covered(std::list<source_entry>& list, char separator,
                  const std::list<std::string>& exclude_list, Source_Paths* covered) {
  auto top = list.begin();
  if (top == list.end()) return;
  // All that lies below a directory follows it at once.
  for (auto entry = std::next(top); entry != list.end(); entry = std::next(top)) {
    const bool drop =
        lies_below(entry->path, top->path, separator) &&
        (entry->path == top->path || (is_directory(*top) && !is_exclude(exclude_list, top->path)));
    if (drop) {
      if (covered != nullptr) covered->insert(entry->path);
      list.erase(entry);
    } else {
      top = entry;
    }
  }
}

}  // namespace

bool to_source_list_type(const std::list<std::string>& sources,
                         std::list<std::string>& exclude_list, const IFilter*,
                         const std::map<std::string, std::string>* volume_map,
                         std::list<source_entry>& out, Source_Paths* covered) {
  if (!normalise(exclude_list)) return false;
  std::list<source_entry> all;
  for (const std::string& source : sources) {
    source_entry entry;
    if (!resolve(source, volume_map, entry)) return false;
    all.push_back(entry);
  }
  sort(all, separator);
  drop_covered(all, separator, exclude_list, covered);
  out.swap(all);
  return true;
}

std::vector<std::string> names_in(const Source_Paths& paths, const std::string& dir) {
  std::vector<std::string> names;
  const std::string top = dir.back() == separator ? dir : dir + separator;
  for (auto path = paths.upper_bound(top);
       path != paths.end() && path->compare(0, top.size(), top) == 0; ++path) {
    const std::size_t end = path->find(separator, top.size());
    std::string name = path->substr(top.size(), end == path->npos ? end : end + 1 - top.size());
    if (names.empty() || names.back() != name) names.push_back(std::move(name));
  }
  return names;
}

void sort(std::list<source_entry>& list, char separator) {
  list.sort([separator](const source_entry& a, const source_entry& b) {
    return walked_before(a, b, separator);
  });
}

void drop_covered(std::list<source_entry>& list, char separator) {
  drop_covered(list, separator, {}, nullptr);
}

void generate_exclude_list(std::list<std::string>& out) {
  for (const char* path : {"/proc", "/sys", "/dev", "/run"}) out.push_back(path);
  out.push_back(MTF_Params::instance().job_tmp_dir());
}

bool is_exclude(const std::list<std::string>& list, const std::string& path) {
  return std::any_of(list.begin(), list.end(), [&path](const std::string& entry) {
    return lies_below(path, entry, separator);
  });
}

}  // namespace MTF
