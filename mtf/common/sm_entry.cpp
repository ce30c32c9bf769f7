#include "mtf/common/sm_entry.h"

#include <cstring>

namespace MTF {

bool SM_Entry::set_buffer(char* data, unsigned int size) {
  if (data == nullptr || size < fixed_size) return false;
  bytes_ = data;
  size_ = size;
  return true;
}

unsigned int SM_Entry::size_for(const SSet_Blk& blk) {
  return fixed_size + blk.data_set_name_size() + blk.data_set_description_size() +
         blk.data_set_password_size() + blk.user_name_size();
}

void SM_Entry::set(const SSet_Blk& blk, unsigned short seq, unsigned short algorithm) {
  length(fixed_size);
  media_sequence_number(seq);
  attributes(blk.hdr().attributes());
  sset_attributes(blk.sset_attributes());
  sset_pba(blk.physical_block_address());
  data_set_number(blk.data_set_number());
  format_logical_address(blk.hdr().format_logical_address());
  password_encryption_algorithm(algorithm);
  std::memcpy(bytes_ + date_offset, blk.image() + SSet_Blk::date_offset, date_time_size);
  time_zone(blk.time_zone());
  os_id(blk.hdr().os_id());
  os_version(blk.hdr().os_version());
  string_type(blk.hdr().string_type());
  mtf_minor_version(blk.mtf_minor_version());
  media_catalog_version(blk.media_catalog_version());
  store_string(64, blk.data_set_name());
  store_string(68, blk.data_set_password());
  store_string(72, blk.data_set_description());
  store_string(76, blk.user_name());
}

void SM_Entry::store_string(unsigned int address_offset, std::string_view text) {
  const unsigned short place = length();
  if (text.empty() || place + text.size() > size_) return;
  std::memcpy(bytes_ + place, text.data(), text.size());
  Tape_Address_Setter address(reinterpret_cast<MTF_TAPE_ADDRESS*>(bytes_ + address_offset));
  address.size(static_cast<unsigned short>(text.size()));
  address.offset(place);
  length(static_cast<unsigned short>(place + text.size()));
}

}  // namespace MTF
