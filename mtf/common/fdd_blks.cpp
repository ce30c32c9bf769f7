#include "mtf/common/fdd_blks.h"

#include <cstring>
#include <limits>

namespace MTF {

void FDD_Hdr::set(const DBLK_Hdr& block, unsigned short seq) {
  type(block.type());
  media_sequence_number(seq);
  attributes(block.attributes());
  format_logical_address(block.format_logical_address());
  displayable_size(block.displayable_size());
  os_id(block.os_id());
  os_version(block.os_version());
  string_type(block.string_type());
}

FDD_Blk::FDD_Blk(Buffer& buffer, bool init, unsigned int fixed_size) : buffer_(buffer) {
  if (!init) return;
  started_ = buffer_.expand(fixed_size);
  if (!started_) return;
  std::memset(buffer_.data(), 0, fixed_size);
  hdr().length(static_cast<unsigned short>(fixed_size));
}

bool FDD_Blk::store_string(unsigned int address_offset, std::string_view text) {
  if (text.empty()) return true;
  const unsigned short place = hdr().length();
  const std::size_t end = place + text.size();
  if (end > std::numeric_limits<unsigned short>::max()) return false;
  if (!buffer_.expand(static_cast<unsigned int>(end))) return false;
  std::memcpy(bytes() + place, text.data(), text.size());
  Tape_Address_Setter address(reinterpret_cast<MTF_TAPE_ADDRESS*>(bytes() + address_offset));
  address.size(static_cast<unsigned short>(text.size()));
  address.offset(place);
  hdr().length(static_cast<unsigned short>(end));
  return true;
}

unsigned short FDD_Blk::string_size_at(unsigned int address_offset) const {
  return Tape_Address_Getter(reinterpret_cast<const MTF_TAPE_ADDRESS*>(bytes() + address_offset))
      .size();
}

bool FDD_Vol_Blk::set(const Vol_Blk& blk, unsigned short seq) {
  if (!started()) return false;
  hdr().set(blk.hdr(), seq);
  volb_attributes(blk.volb_attributes());
  std::memcpy(bytes() + date_offset, blk.image() + Vol_Blk::date_offset, date_time_size);
  return store_string(40, blk.device_name()) && store_string(44, blk.volume_name()) &&
         store_string(48, blk.machine_name());
}

bool FDD_Named_Blk::set_named(const Dir_Blk& blk, unsigned short seq, const std::string& name) {
  return set_all(blk, blk.dirb_attributes(), seq, name);
}

bool FDD_Named_Blk::set_named(const File_Shaped_Blk& blk, unsigned short seq,
                              const std::string& name) {
  return set_all(blk, blk.file_attributes(), seq, name);
}

template <class Blk>
bool FDD_Named_Blk::set_all(const Blk& blk, unsigned int attributes, unsigned short seq,
                            const std::string& name) {
  if (!started()) return false;
  hdr().set(blk.hdr(), seq);
  std::memcpy(bytes() + dates_offset, blk.image() + Blk::dates_offset, 4 * date_time_size);
  block_attributes(attributes);
  return store_string(60, name);
}

}  // namespace MTF
