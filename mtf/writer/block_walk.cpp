// How Block_Producer turns sources and what it finds there into blocks.
#include <ace/Log_Msg.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "mtf/writer/block_producer.h"
#include "mtf/writer/file_type.h"
#include "mtf/writer/queue_blocks.h"
#include "oxbase/path.h"
#include "services/file_path.h"
#include "services/json_spirit.h"

namespace MTF {
namespace {

constexpr char system_separator = '\\';
constexpr const char* path_too_long = "Path too long.";

}  // namespace

bool Block_Producer::process_source(const source_entry& entry) {
  if (MTF_FS::is_root_path(entry.path)) return process_volume(entry.path);
  const bool is_dir = is_directory(entry.stat);
  std::string vol;
  std::string dir;
  std::string name;
  if (!(is_dir ? MTF_FS::path_component(entry.path, source_separator(), vol, dir)
               : MTF_FS::path_component(entry.path, source_separator(), vol, dir, name))) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to parse path component of source '%C'.\n"),
                      entry.path.c_str()),
                     false);
  }
  std::replace(dir.begin(), dir.end(), source_separator(), system_separator);
  // A source that the host named is never left out with just an event.
  if (is_too_long(entry.path, dir)) return false;
  if (!goto_dir(vol, dir)) return false;
  return is_dir ? walk_dir(full_path("")) : process_file(entry.stat, name, 0);
}

bool Block_Producer::process_volume(const std::string& path) {
  // As paths below it are split.
  const std::string vol = path.substr(0, path.find_last_not_of(system_separator) + 1);
  if (!write_item(block_volb, vol)) return false;
  const bool again = cur_vol_ == vol;
  set_volume(vol);
  if (again) {
    ACE_ERROR_RETURN(
        (LM_ERROR, ACE_TEXT("Invalid source duplicate volume: %s\n"), cur_vol_.c_str()), false);
  }
  return walk_dir(path);
}

// Not by recursion: the depth of a tree has no limit but the length of a path.
bool Block_Producer::walk_dir(const std::string& path) {
  Walk walk{path, {}};
  enter(walk);
  while (!walk.levels.empty()) {
    Level& level = walk.levels.back();
    if (level.entries.empty()) {
      walk.levels.pop_back();
      continue;
    }
    walk.path.resize(level.path_size);
    const Entry entry = std::move(level.entries.back());
    level.entries.pop_back();
    if (!handle(walk, entry)) return false;
  }
  return true;
}

void Block_Producer::enter(Walk& walk) {
  std::vector<Entry> entries;
  if (!read_dir(walk.path, entries)) return;
  std::reverse(entries.begin(), entries.end());
  walk.levels.push_back({walk.path.size(), std::move(entries)});
}

bool Block_Producer::handle(Walk& walk, const Entry& entry) {
  if (!is_wanted(walk.path, entry)) return true;
  if (!entry.is_directory()) return process_file(entry.stat, entry.name, entry.reparse_type);
  const std::string full = MTF_FS::entry_path(walk.path, entry.name);
  bool left_out = false;
  if (!put_sub_directory(full, left_out)) return false;
  if (!end_directory()) return false;
  if (left_out) return true;
  walk.path = full;
  enter(walk);
  return true;
}

bool Block_Producer::process_file(const _stat64& stat, const std::string& name,
                                  unsigned int reparse_type) {
  unsigned int type = file_type(stat, reparse_type, save_links_);
  if (type == no_type) {
    const std::string full = full_path(name);
    on_unsupported_file(full);
    ACE_ERROR_RETURN((LM_WARNING, ACE_TEXT("Unsupported file type, path=%s, mode=0x%X\n"),
                      full.c_str(), stat.st_mode),
                     true);
  }
  if (name.size() > MTF_PATH_MAX) {
    ++skipped_files();
    tell_skip("file", full_path(name), ENAMETOOLONG, path_too_long);
    return true;
  }
  auto size = static_cast<unsigned long long>(stat.st_size);
  unsigned short link_flags = 0;
  if (stat.st_nlink > 1 && !find_hardlink(stat, name, type, size, link_flags)) return false;
  // A further name has the type of its first name.
  if (type != block_hlnk && (is_uncertain(stat.st_mtime) || is_uncertain(stat.st_ctime))) {
    link_flags |= cat_uncertain;
  }
  return write_item(type, name, stat.st_mtime, size, link_flags, stat.st_ino);
}

std::string Block_Producer::full_path(const std::string& name) const {
  oxbase::Path_T<char> full(system_separator, false);
  full /= cur_vol_;
  full /= cur_dir_;
  full /= name;
  return full.str();
}

// Further names of a file become HLNK blocks, whose size is the length of the first name.
bool Block_Producer::find_hardlink(const _stat64& stat, const std::string& name, unsigned int& type,
                                   unsigned long long& size, unsigned short& link_flags) {
  std::string first;
  if (hardlink_map_->get(stat.st_ino, first)) {
    type = block_hlnk;
    size = first.size();
    return true;
  }
  link_flags = cat_first_link;
  if (hardlink_map_->add(stat.st_ino, full_path(name), seq_)) return true;
  ACE_ERROR_RETURN(
      (LM_EMERGENCY, ACE_TEXT("Unexpected error in %N:%l, hardlink_map_->add( stat.st_ino, "
                              "full.str(), seq_) is false:\n%?\n")),
      false);
}

void Block_Producer::set_volume(const std::string& vol) {
  cur_vol_ = vol;
  cur_dir_.clear();
}

bool Block_Producer::goto_dir(const std::string& vol, const std::string& dir) {
  return lead_to(
      vol, dir, cur_vol_, cur_dir_,
      [this](const std::string& name) {
        if (!write_item(block_volb, name)) return false;
        set_volume(name);
        return true;
      },
      [this](const std::string& name) { return write_item(block_dirb, name); });
}

void Block_Producer::send_skip(const char* type, const std::string& name, int error,
                               const char* message) {
  if (event_handler_ == nullptr) return;
  json_spirit::Document document = {
      {"type", type}, {"name", name}, {"errno", nullptr}, {"message", message}};
  if (error != 0) document["errno"] = error;
  event_handler_->handle_event(event_skipped, document);
}

// The block of a directory below the current volume, which becomes the current one. One whose path
// is too long is left out.
bool Block_Producer::put_sub_directory(const std::string& full, bool& left_out) {
  std::string vol;
  std::string dir;
  if (!MTF_FS::path_component(full, system_separator, vol, dir)) return false;
  if (!is_current_volume(vol)) return false;
  left_out = is_too_long(full, dir);
  if (left_out) return true;
  if (!write_item(block_dirb, dir)) return false;
  cur_dir_ = dir;
  return true;
}

bool Block_Producer::is_current_volume(const std::string& vol) const {
  if (vol == cur_vol_) return true;
  ACE_ERROR_RETURN(
      (LM_ERROR, ACE_TEXT("Failed to walk_dir, different volume found, cur_vol=%C, vol=%C\n"),
       cur_vol_.c_str(), vol.c_str()),
      false);
}

bool Block_Producer::is_too_long(const std::string& path, const std::string& dir) {
  // The name stream of a directory block holds no more.
  if (dir.size() <= MTF_PATH_MAX) return false;
  count_skipped_dir(path, ENAMETOOLONG, path_too_long);
  return true;
}

void Block_Producer::count_skipped_dir(const std::string& path, int error, const char* message) {
  ++skipped_dirs();
  tell_skip("directory", path, error, message);
}

void Block_Producer::tell_skip(const char* type, const std::string& name, int error,
                               const char* message) {
  send_skip(type, name, error, message);
  if (event_handler_ != nullptr) return;
  ACE_ERROR(
      (LM_ERROR, ACE_TEXT("Skipped %C '%C', errno=%d: %C\n"), type, name.c_str(), error, message));
}

}  // namespace MTF
