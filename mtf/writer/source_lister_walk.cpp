// The lister walk of Source_Producer: Backup_Source_Lister scans on threads of its own, and the
// producer turns what it gives into blocks.
#include <ace/ACE.h>
#include <ace/Log_Msg.h>
#include <ace/OS_NS_errno.h>

#include <cstdio>

#include "mtf/writer/backup_source_lister.h"
#include "mtf/writer/backup_source_lister_factory.h"
#include "mtf/writer/file_type.h"
#include "mtf/writer/source_producer.h"
#include "services/file_path.h"

namespace MTF {
namespace {

// A source is walked even where it is excluded, and finds those of its files that the filter keeps.
std::list<source_entry> without_found(std::list<source_entry> list, const IFilter* filter) {
  const source_entry* directory = nullptr;
  list.remove_if([&directory, filter](const source_entry& entry) {
    if (is_directory(entry.stat)) {
      directory = &entry;
      return false;
    }
    return directory != nullptr &&
           (entry.name == directory->path || entry.name == directory->path + '\\') &&
           (filter == nullptr || filter->accept(entry.path.c_str(), false));
  });
  return list;
}

std::string with_number(const char* format, unsigned int number) {
  char text[64];
  std::snprintf(text, sizeof text, format, number);
  return text;
}

}  // namespace

struct Source_Producer::Lister_Counts {
  unsigned long long sources = 0;
  unsigned long long dirs = 0;
  unsigned long long files = 0;
  unsigned long long skipped = 0;
};

int Source_Producer::lister_walk(const std::list<source_entry>& list) {
  Backup_Source_Lister lister(
      Backup_Source_Lister_Factory::create("mmap", cache_dir_), threads_,
      [this](const std::string& path, const Entry& entry) { return filter_entry(path, entry); },
      [this](const std::string& path, int error) { return on_walk_error(path, error); },
      [this](const std::string& path) { return map_path(path); },
      [this](const std::string& path) { return named_entries(path); });
  if (!lister.open(without_found(list, filter_))) {
    ACE_ERROR_RETURN(
        (LM_ERROR, ACE_TEXT("Failed to open source liseter with cache dir: %s, %d threads.\n"),
         cache_dir_.c_str(), threads_),
        -1);
  }
  Lister_Counts counts;
  std::string dir;
  Entry entry;
  bool is_source = false;
  int result;
  while ((result = lister.next_entry(dir, entry, is_source)) == Backup_Source_Lister::found) {
    if (!handle_listed(dir, entry, is_source, counts)) return -1;
  }
  if (result != Backup_Source_Lister::at_end) {
    ACE_ERROR_RETURN(
        (LM_ERROR, ACE_TEXT("Failed to list sources to their end, errno=%d, %m.\n"), errno), -1);
  }
  if (!write_end()) return -1;
  ACE_DEBUG((LM_DEBUG,
             ACE_TEXT("Source producer ends with %Q source entries, %Q dirs, %Q files and %Q "
                      "entries skipped.\n"),
             counts.sources, counts.dirs, counts.files, counts.skipped));
  return 0;
}

bool Source_Producer::handle_listed(const std::string& dir, const Entry& entry, bool is_source,
                                    Lister_Counts& counts) {
  if (dir.empty() && entry.name.empty()) return true;
  Verdict verdict = Verdict::take;
  if (is_source) {
    verdict = handle_source(entry, counts);
  } else if (entry.is_directory()) {
    verdict = handle_directory(MTF_FS::entry_path(dir, entry.name), entry.reparse_type, counts);
  } else {
    handle_file(dir, entry, counts);
  }
  if (verdict == Verdict::take && ACE::debug()) {
    ACE_DEBUG((LM_DEBUG, ACE_TEXT("%s\n"),
               is_source ? entry.name.c_str() : MTF_FS::entry_path(dir, entry.name).c_str()));
  }
  return verdict != Verdict::fail;
}

void Source_Producer::handle_file(const std::string& dir, const Entry& entry,
                                  Lister_Counts& counts) {
  if (process_file(entry.stat, entry.name, entry.reparse_type)) {
    ++counts.files;
    return;
  }
  ACE_ERROR((LM_WARNING, ACE_TEXT("Failed to process and skip file '%s'.\n"),
             MTF_FS::entry_path(dir, entry.name).c_str()));
}

Block_Producer::Verdict Source_Producer::handle_directory(const std::string& full,
                                                          unsigned int reparse_type,
                                                          Lister_Counts& counts) {
  if (reparse_type != 0) {
    ++counts.skipped;
    ACE_ERROR((LM_ERROR, ACE_TEXT("Skip '%s' for unsupported reparse type: %d.\n"), full.c_str(),
               reparse_type));
    return Verdict::skip;
  }
  std::string vol;
  std::string dir;
  if (!MTF_FS::path_component(full, '\\', vol, dir)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to parse path component of dir '%s'.\n"), full.c_str()));
    return Verdict::fail;
  }
  if (!is_current_volume(vol)) return Verdict::fail;
  if (!end_directory() || !write_item(block_dirb, dir)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to add dir '%s' to backup queue.\n"), full.c_str()));
    return Verdict::fail;
  }
  cur_dir_ = dir;
  ++counts.dirs;
  return Verdict::take;
}

Block_Producer::Verdict Source_Producer::handle_source(const Entry& entry, Lister_Counts& counts) {
  ++counts.sources;
  const std::string& path = entry.name;
  if (MTF_FS::is_root_path(path)) {
    if (path == cur_vol_) {
      ACE_ERROR((LM_ERROR, ACE_TEXT("Invalid source duplicate volume: %s\n"), path.c_str()));
      return Verdict::skip;
    }
    if (write_item(block_volb, path)) set_volume(path);
    return Verdict::take;
  }
  const bool is_dir = entry.is_directory();
  std::string vol;
  std::string dir;
  std::string name;
  if (!(is_dir ? MTF_FS::path_component(path, '\\', vol, dir)
               : MTF_FS::path_component(path, '\\', vol, dir, name))) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to parse path component of %C '%s'.\n"),
               is_dir ? "dir" : "file", path.c_str()));
    return Verdict::fail;
  }
  // A source that the host named is never left out with just an event.
  if (is_too_long(path, dir)) return Verdict::fail;
  if (!goto_dir(vol, dir)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to process dir, vol: '%s', dir: '%s'.\n"), vol.c_str(),
               dir.c_str()));
    return Verdict::fail;
  }
  if (!is_dir) process_file(entry.stat, name, 0);
  return Verdict::take;
}

// This and what follows runs on the lister's threads, and so reads only what init() set.
bool Source_Producer::filter_entry(const std::string& path, const Entry& entry) {
  const bool is_dir = entry.is_directory();
  if (is_dir && is_excluded(path)) return false;
  if (is_filtered(path, is_dir)) return false;
  if (is_dir && entry.reparse_type != 0) {
    if (ACE::debug()) {
      ACE_DEBUG((LM_DEBUG, ACE_TEXT("Skip path: %s, unsupported reparse type: %d.\n"), path.c_str(),
                 entry.reparse_type));
    }
    send_skip("directory", path, 0,
              with_number("Unsupported reparse type(%d)", entry.reparse_type).c_str());
    return false;
  }
  if (!is_dir && file_type(entry.stat, entry.reparse_type, save_links_) == no_type) {
    ACE_ERROR((LM_WARNING, ACE_TEXT("Unsupported file type, path=%s, mode=0x%X\n"), path.c_str(),
               entry.stat.st_mode));
    send_skip("file", path, 0,
              with_number("Unsupported file type(0x%x)", entry.stat.st_mode).c_str());
    return false;
  }
  return !is_dir || fits_block(path);
}

// Where the directory block of a path has no room for it, all below is left out. A path that can't
// be split is the producer's to refuse.
bool Source_Producer::fits_block(const std::string& path) {
  std::string vol;
  std::string dir;
  return !MTF_FS::path_component(path, '\\', vol, dir) || !is_too_long(path, dir);
}

bool Source_Producer::on_walk_error(const std::string& path, int error) {
  // The lister logs this failure itself.
  ++skipped_dirs();
  send_skip("directory", path, error, "Failed to open directory.");
  return true;
}

// The shadow volume is found by the path: the producer may be on another volume still.
std::string Source_Producer::map_path(const std::string& path) const {
  std::string vol;
  std::string dir;
  if (volume_map_ == nullptr || !MTF_FS::path_component(path, '\\', vol, dir)) return path;
  const auto shadow = volume_map_->find(vol);
  oxbase::Path_T<char> out('\\', false);
  if (shadow == volume_map_->end() || !MTF_FS::replace_volume(path, shadow->second, out))
    return path;
  return out.str();
}

}  // namespace MTF
