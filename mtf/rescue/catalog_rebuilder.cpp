#include "mtf/rescue/catalog_rebuilder.h"

#include <algorithm>

#include "mtf/common/round_up.h"
#include "mtf/reader/link_view.h"
#include "mtf/reader/stream_check.h"

namespace MTF {
namespace {

// The block size of a file system that isn't known.
constexpr unsigned long long usual_block = 4096;

// Usual file systems keep the target of a link in its inode if it is shorter.
constexpr unsigned long long least_outside = 60;

// A file whose number no stream tells gets one that no other has: its job and its address.
constexpr unsigned int number_shift = 48;

// Where the long stat record (CTEX) has them.
constexpr std::size_t stat_ino = 32;
constexpr std::size_t stat_links = 40;
constexpr std::size_t stat_size = 88;

// What a catalog's entry has room for.
constexpr std::size_t longest_catalog_name = 65535 - MTF_CAT_DIRB_BLK::fixed_size;

bool has_name(const Found_Object& object) {
  return !object.name.empty() && object.name.size() <= longest_catalog_name;
}

std::string_view date_of(const Found_Object& object) {
  return object.view.date(file_at::last_modification_date);
}

}  // namespace

bool Catalog_Rebuilder::hold(std::string_view bytes) {
  const auto size = static_cast<unsigned int>(bytes.size());
  if (!block_.expand(size)) return false;
  block_.copy(bytes.data(), size);
  return true;
}

void Catalog_Rebuilder::on_frame(const Media_Block& block) {
  met_ = true;
  if (block.view.header.type != block_sset) return;
  failed_ = !hold(block.view.bytes) || !out_.add_sset_blk(SSet_Blk(block_, false)) || failed_;
}

void Catalog_Rebuilder::on_object(const Found_Object& object) {
  met_ = true;
  if (failed_) return;
  switch (object.view.header.type) {
    case block_volb:
      failed_ = !take_volume(object);
      break;
    case block_dirb:
      failed_ = !take_directory(object);
      break;
    default:
      failed_ = !take_file(object);
      break;
  }
}

bool Catalog_Rebuilder::take_volume(const Found_Object& object) {
  if (!has_name(object) || block_name(object.view).empty()) {
    return leave_out(object, "VOLB block has no name");
  }
  in_volume_ = true;
  take_path(object);
  if (earlier_ != nullptr && !earlier_->to_volume(object.name, gap_)) return false;
  gap_ = false;
  return add(object, {});
}

// An entry without a volume would have no place.
bool Catalog_Rebuilder::enter_lost_volume(const Found_Object& object) {
  if (in_volume_) return true;
  in_volume_ = true;
  const std::string name = lost_volume_();
  Job_Entry volume;
  place_.find({block_volb, string_bytes, 0, {}, name}, volume);
  on_fault_(object.position, "the volume is lost: taken as '" + name + "'");
  if (earlier_ != nullptr && !earlier_->to_volume(name, false)) return false;
  Cat_Vol_Blk blk;
  return blk.alloc_buffer(static_cast<unsigned int>(Cat_Vol_Blk::buffer_need(name.size()))) &&
         blk.set(seq_, name) && out_.add_cat_vol_blk(blk);
}

bool Catalog_Rebuilder::take_directory(const Found_Object& object) {
  directory_.reset();  // that of a block without a name has no files
  if (!has_name(object)) return leave_out(object, "DIRB block has no name");
  if (!enter_lost_volume(object)) return false;
  directory_ = object.view.get<unsigned int>(dirb_at::directory_id);
  take_path(object);
  if (earlier_ != nullptr && !earlier_->to_directory(object.name, date_of(object), gap_)) {
    return false;
  }
  gap_ = false;
  return add(object, {});
}

bool Catalog_Rebuilder::take_file(const Found_Object& object) {
  const bool damaged = is_damaged(object);
  const bool action = object.view.header.type == block_pdat;
  if (!action && object.view.get<unsigned int>(file_at::directory_id) != directory_) {
    return leave_out(object, "the directory of this file is lost");
  }
  if (!object.corrupt && (damaged || !has_name(object))) {
    return leave_out(object, "this file isn't whole");
  }
  if (!enter_lost_volume(object)) return false;
  const bool replaces = !action && earlier_ != nullptr;
  if (replaces && !earlier_->to_file(object.name)) return false;
  File_Facts facts;
  if (!object.corrupt && !know_file(object, facts)) {
    return leave_out(object, "the first name of this file is lost");
  }
  if (replaces) earlier_->replace_file(object.name);
  return object.corrupt || add(object, facts);
}

// Gives the path of the object, and moves into it if it is a volume or directory.
std::string Catalog_Rebuilder::take_path(const Found_Object& object) {
  const Block_Header& header = object.view.header;
  Job_Entry entry;
  place_.find({header.type, header.string_type, 0, {}, object.name}, entry);
  return entry.path;
}

// Finds out the number of a file and whether it is the first of several names. False for a further
// name of a file that isn't listed.
bool Catalog_Rebuilder::know_file(const Found_Object& object, File_Facts& facts) {
  const Block_Header& header = object.view.header;
  if (header.type == block_hlnk) {
    std::string first;
    if (!read_first_name(object.link, first)) return false;
    const auto number = first_names_.number_of(first);
    facts.number = number.value_or(0);
    return number.has_value();
  }
  const std::string path = take_path(object);
  facts.first = first_names_.has(path);
  if (object.stat.size() >= stat_size) {
    const char* stat = object.stat.data();
    facts.number = load_le<unsigned long long>(stat + stat_ino);
    facts.first = facts.first || load_le<unsigned long long>(stat + stat_links) > 1;
  } else if (facts.first) {
    facts.number =
        static_cast<unsigned long long>(seq_) << number_shift | header.format_logical_address;
  }
  if (facts.first) first_names_.note(path, facts.number);
  return true;
}

// What is left out of the catalog is saved anew by the next incremental job.
bool Catalog_Rebuilder::leave_out(const Found_Object& object, const char* why) {
  ++summary_.left_out;
  on_fault_(object.position, "'" + shown_name(object) + "' isn't listed: " + why);
  return true;
}

// Faults of a block that comes next may have been told already.
bool Catalog_Rebuilder::is_damaged(const Found_Object& object) {
  const auto begins_before = [](unsigned long long end) {
    return [end](unsigned long long fault) { return fault < end; };
  };
  const auto drop = [&](unsigned long long end) {
    faults_.erase(std::remove_if(faults_.begin(), faults_.end(), begins_before(end)),
                  faults_.end());
  };
  drop(object.position);
  Stat_Extent stat;
  const bool damaged = object.end == 0 ||
                       (!object.stat.empty() && !read_stat_extent(object.stat, stat)) ||
                       std::any_of(faults_.begin(), faults_.end(), begins_before(object.end));
  drop(object.end);
  return damaged;
}

bool Catalog_Rebuilder::add(const Found_Object& object, const File_Facts& facts) {
  if (!hold(object.bytes)) return false;
  ++summary_.saved;
  const unsigned long long bytes =
      object.sparse ? object.stretches : object.view.header.displayable_size;
  const auto space = round_up<unsigned long long>(bytes, usual_block);
  switch (object.view.header.type) {
    case block_volb:
      return out_.add_vol_blk(Vol_Blk(block_, false));
    case block_dirb:
      return out_.add_dir_blk(Dir_Blk(block_, false), 0, object.name);
    case block_pdat:
      return out_.add_pdat_blk(PDat_Blk(block_, false), object.name);
    case block_slnk:
      return add_file(&Catalog_Stream::add_slnk_blk, object, facts,
                      bytes < least_outside ? 0 : space);
    case block_hlnk:
      return add_file(&Catalog_Stream::add_hlnk_blk, object, facts, 0);
    case block_devb:
      return add_file(&Catalog_Stream::add_devb_blk, object, facts, 0);
    default:
      return add_file(&Catalog_Stream::add_file_blk, object, facts, space);
  }
}

template <class Blk>
bool Catalog_Rebuilder::add_file(
    bool (Catalog_Stream::*operation)(const Blk&, unsigned long long, unsigned long long,
                                      unsigned short, const std::string&),
    const Found_Object& object, const File_Facts& facts, unsigned long long space) {
  return (out_.*operation)(Blk(block_, false), space, facts.number,
                           facts.first ? cat_first_link : 0, object.name);
}

bool Catalog_Rebuilder::end() {
  if (earlier_ != nullptr && !failed_) failed_ = !earlier_->end(gap_);
  return !failed_ && out_.end();
}

}  // namespace MTF
