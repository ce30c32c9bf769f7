// The plain walk of Source_Producer: depth first, on its own thread.
#include <ace/ACE.h>
#include <ace/Log_Msg.h>

#include <cerrno>

#include "mtf/writer/source_producer.h"
#include "services/file_path.h"

namespace MTF {

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

// Reads a directory to its end before anything in it is handled. False where it is left out. The
// host is told of one that can't be opened; one that fails further on counts as skipped, as some of
// it may be missing. Either still leads to what is named below it.
bool Source_Producer::read_dir(const std::string& path, std::vector<Entry>& entries) {
  if (is_excluded(path) || is_filtered(path, true)) return false;
  // The root of a volume, or the shadow in its place, may be a link.
  oxbase::Directory_Iterator_T<char> it(path_to_open(path), reparse_point_types_ != 0,
                                        reparse_point_types_, MTF_FS::is_root_path(path));
  const oxbase::Directory_Iterator_T<char> end;
  const bool opened = it.has_handle();
  for (; it != end; ++it) entries.push_back(std::move(*it));
  if (!opened) {
    count_skipped_dir(path, it.ec(), "Failed to open directory.");
  } else if (it.ec() != 0) {
    ++skipped_dirs();
    errno = it.ec();
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to read directory to its end, path=%C, errno=%d, %m\n"),
               path.c_str(), it.ec()));
  }
  if (!opened || it.ec() != 0) {
    for (Entry& entry : named_entries(path)) entries.push_back(std::move(entry));
  }
  oxbase::put_in_order(entries);
  return true;
}

std::vector<Block_Producer::Entry> Source_Producer::named_entries(const std::string& dir) {
  std::vector<Entry> entries;
  for (std::string& name : names_in(covered_, dir)) {
    const bool is_dir = name.back() == '\\';
    if (is_dir) name.pop_back();
    const std::string full = MTF_FS::entry_path(dir, name);
    Entry entry{std::move(name), {}};
    const int error = platform::stat_link(map_path(full), entry.stat);
    if (error == 0) {
      entries.push_back(std::move(entry));
    } else if (is_dir) {
      count_skipped_dir(full, error, "Failed to open directory.");
    } else {
      ++skipped_files();
      tell_skip("file", full, error, "Failed to stat file");
    }
  }
  return entries;
}

bool Source_Producer::is_wanted(const std::string& dir, const Entry& entry) {
  const bool kept =
      filter_ == nullptr || !is_filtered(MTF_FS::entry_path(dir, entry.name), entry.is_directory());
  return kept && (!entry.is_directory() || entry.reparse_type == 0);
}

}  // namespace MTF
