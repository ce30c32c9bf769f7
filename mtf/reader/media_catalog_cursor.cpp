#include "mtf/reader/media_catalog_cursor.h"

#include <algorithm>

namespace MTF {
namespace {

constexpr std::size_t longest_fdd_entry = 65535;

}  // namespace

bool Media_Catalog_Cursor::open(unsigned int seq) {
  seq_ = seq;
  if (!finder_.find(seq, place_, fault_)) return false;
  rewind();
  Counts counts;
  FDD_View entry;
  while (next(entry)) {
    ++(entry.type == block_volb   ? counts.volumes
       : entry.type == block_dirb ? counts.directories
                                  : counts.files);
  }
  if (!fault_.empty() || !check_counts(counts)) return false;
  rewind();
  return true;
}

void Media_Catalog_Cursor::rewind() {
  position_ = place_.tfdd;
  last_address_ = 0;
}

bool Media_Catalog_Cursor::next(FDD_View& entry) {
  const unsigned long long end = place_.tfdd + place_.tfdd_length;
  if (position_ >= end) return false;
  const auto size =
      static_cast<std::size_t>(std::min<unsigned long long>(longest_fdd_entry, end - position_));
  const char* bytes = window_.view(position_, size);
  if (bytes == nullptr) return fail(position_, "catalog of the media can't be read");
  if (size == fdd_header_size && load_le<unsigned int>(bytes + fdd_at::type) == block_fend) {
    position_ = end;
    return false;
  }
  if (!read_fdd_entry({bytes, size}, entry)) return fail(position_, "TFDD entry is damaged");
  if (entry.seq != static_cast<unsigned short>(seq_)) {
    return fail(position_, "entry belongs to another media");
  }
  if (entry.address <= last_address_ ||
      entry.address >= window_.size() / finder_.geometry().logical) {
    return fail(position_, "entry points to a wrong place on the media");
  }
  last_address_ = entry.address;
  entry_position_ = position_;
  position_ += entry.length;
  return position_ < end || fail(position_, "TFDD stream has no FEND entry");
}

bool Media_Catalog_Cursor::check_counts(const Counts& counts) {
  const unsigned long long position = place_.tsmp + set_map_header_size;
  const char* bytes = place_.tsmp_length < set_map_header_size + sm_entry_size
                          ? nullptr
                          : window_.view(position, sm_entry_size);
  if (bytes != nullptr && load_le<unsigned int>(bytes + sm_at::directories) == counts.directories &&
      load_le<unsigned int>(bytes + sm_at::files) == counts.files &&
      load_le<unsigned short>(bytes + sm_at::volumes) == counts.volumes) {
    return true;
  }
  return fail(position, "set map counts other entries than the TFDD stream has");
}

bool Media_Catalog_Cursor::fail(unsigned long long position, const char* text) {
  fault_ = text;
  fault_position_ = position;
  return false;
}

}  // namespace MTF
