// The plain walk of Source_Producer: depth first, on its own thread.
#include <ace/ACE.h>
#include <ace/Log_Msg.h>

#include <algorithm>
#include <cerrno>

#include "mtf/writer/source_producer.h"
#include "services/file_path.h"

namespace MTF {

bool Source_Producer::walk_dir(const std::string& path) {
  if (is_excluded(path) || is_filtered(path, true)) return true;
  std::vector<Entry> entries;
  if (!read_dir(path, entries)) return true;
  oxbase::put_in_order(entries);
  return std::all_of(entries.begin(), entries.end(),
                     [this, &path](const Entry& entry) { return walk_entry(path, entry); });
}

bool Source_Producer::is_excluded(const std::string& path) {
  if (!is_exclude(exclude_list_, path)) return false;
  ACE_DEBUG((LM_INFO, ACE_TEXT("Exclude path: %C\n"), path.c_str()));
  send_skip("directory", path, 0, "Excluded by exclude list.");
  return true;
}

bool Source_Producer::is_filtered(const std::string& path, bool is_directory) {
  if (filter_ == nullptr || filter_->accept(path.c_str(), is_directory)) return false;
  if (ACE::debug()) ACE_DEBUG((LM_DEBUG, ACE_TEXT("Filter path: %C\n"), path.c_str()));
  send_skip(is_directory ? "directory" : "file", path, 0, "Excluded by filter.");
  return true;
}

std::string Source_Producer::path_to_open(const std::string& path) const {
  oxbase::Path_T<char> out('\\', false);
  if (!shadow_vol_.empty() && MTF_FS::replace_volume(path, shadow_vol_, out)) return out.str();
  return path;
}

// Reads a directory to its end before anything in it is handled. False where it can't be opened,
// which the host is told of. One that fails further on counts as skipped, as some of it may be
// missing.
bool Source_Producer::read_dir(const std::string& path, std::vector<Entry>& entries) {
  // The root of a volume, or the shadow in its place, may be a link.
  oxbase::Directory_Iterator_T<char> it(path_to_open(path), reparse_point_types_ != 0,
                                        reparse_point_types_, MTF_FS::is_root_path(path));
  if (!it.has_handle()) {
    count_skipped_dir(path, it.ec(), "Failed to open directory.");
    return false;
  }
  const oxbase::Directory_Iterator_T<char> end;
  for (; it != end; ++it) entries.push_back(std::move(*it));
  if (it.ec() != 0) {
    ++skipped_dirs();
    errno = it.ec();
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to read directory to its end, path=%C, errno=%d, %m\n"),
               path.c_str(), it.ec()));
  }
  return true;
}

bool Source_Producer::walk_entry(const std::string& path, const Entry& entry) {
  oxbase::Path_T<char> full('\\', false);
  full /= path;
  full /= entry.name;
  if (is_filtered(full.str(), entry.is_directory())) return true;
  if (!entry.is_directory()) return process_file(entry.stat, entry.name, entry.reparse_type);
  if (entry.reparse_type != 0) return true;
  bool left_out = false;
  if (!put_sub_directory(full.str(), left_out)) return false;
  return left_out || walk_dir(full.str());
}

}  // namespace MTF
