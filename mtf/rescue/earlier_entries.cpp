#include "mtf/rescue/earlier_entries.h"

#include <algorithm>

#include "mtf/common/format_words.h"
#include "mtf/reader/tree_place.h"
#include "oxbase/directory_iterator.h"
#include "services/bytes.h"
#include "services/text.h"

namespace MTF {
namespace {

std::string with_separators(std::string_view name) {
  std::string text(name);
  std::replace(text.begin(), text.end(), '\0', '\\');
  return text;
}

}  // namespace

int Earlier_Entries::compare(const Place& a, const Place& b) {
  const int order = a.volume.compare(b.volume);
  if (order != 0 || a.directory == b.directory) return order;
  return oxbase::path_less(a.directory, b.directory) ? -1 : 1;
}

void Earlier_Entries::open() {
  walker_.open();
  advance();
}

// Moves to the next entry that may belong to the job. The pre-action data of the base doesn't.
void Earlier_Entries::advance() {
  do {
    at_end_ = !walker_.next(record_);
  } while (!at_end_ && record_.type == block_pdat);
  if (at_end_) return;
  if (record_.type == block_volb) here_ = {with_separators(record_.name), {}};
  if (record_.type == block_dirb) here_.directory = with_separators(record_.name);
}

bool Earlier_Entries::at_file() const {
  return !at_end_ && record_.type != block_volb && record_.type != block_dirb;
}

bool Earlier_Entries::to_volume(const std::string& name, bool gap) {
  if (!leave()) return false;
  wanted_ = {with_separators(name), {}};
  return go_to({}, gap);
}

bool Earlier_Entries::to_directory(const std::string& name, std::string_view date, bool gap) {
  if (!leave()) return false;
  wanted_.directory = with_separators(name);
  return go_to(std::string(date), gap);
}

bool Earlier_Entries::go_to(const std::string& date, bool gap) {
  for (; !at_end_ && compare(here_, wanted_) < 0; advance()) {
    if (gap && !keep(true)) return false;
  }
  in_place_ = !at_end_ && compare(here_, wanted_) == 0;
  changed_ = date.empty() || (in_place_ && record_.date != date);
  if (in_place_ && !at_file()) advance();
  return true;
}

// Takes over what the base holds of the directory behind the last file of the media.
bool Earlier_Entries::leave() {
  for (; in_place_ && at_file(); advance()) {
    if (!keep(changed_)) return false;
  }
  in_place_ = false;
  return true;
}

bool Earlier_Entries::to_file(const std::string& name) {
  if (!in_place_) return true;
  for (; at_file() && record_.name < name; advance()) {
    if (!keep(changed_)) return false;
  }
  return true;
}

void Earlier_Entries::replace_file(const std::string& name) {
  if (in_place_ && at_file() && record_.name == name) advance();
}

bool Earlier_Entries::end(bool gap) {
  if (!leave()) return false;
  for (; gap && !at_end_; advance()) {
    if (!keep(true)) return false;
  }
  return true;
}

bool Earlier_Entries::keep(bool unsure) {
  if (at_file()) {
    const std::string path = here_.volume + '\\' + here_.directory + std::string(record_.name);
    if (is_gone(path)) return true;
    unsure_ += unsure ? 1 : 0;
    if ((record_.flags & cat_first_link) != 0) {
      files_.insert(record_.ino);
      first_names_.note(path, record_.ino);
    }
  }
  ++kept_;
  return add();
}

// A further name is taken over only together with its first name; else it is on the media.
bool Earlier_Entries::is_gone(const std::string& path) {
  return std::binary_search(taken_.begin(), taken_.end(), hash_of(path)) ||
         (record_.type == block_hlnk && files_.count(record_.ino) == 0);
}

// The entry goes over with all that the base's catalog says of it.
bool Earlier_Entries::add() {
  const char* start = window_.view(record_.position, sizeof(unsigned short));
  const std::size_t length = start == nullptr ? 0 : load_le<unsigned short>(start);
  const char* bytes = window_.view(record_.position, length);
  if (length == 0 || bytes == nullptr) return false;
  bytes_.assign(bytes, length);
  const auto size = static_cast<unsigned int>(length);
  if (record_.type == block_volb) {
    Cat_Vol_Blk blk;
    blk.set_buffer(&bytes_[0], size, false);
    return out_.add_cat_vol_blk(blk);
  }
  if (record_.type == block_dirb) {
    Cat_Dir_Blk blk;
    blk.set_buffer(&bytes_[0], size, false);
    return out_.add_cat_dir_blk(blk);
  }
  // All file-like entries are taken over in one way.
  Cat_File_Blk blk;
  blk.set_buffer(&bytes_[0], size, false);
  return out_.add_cat_file_blk(blk);
}

}  // namespace MTF
