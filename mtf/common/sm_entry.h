// The set map: its header, and the entry of a data set (MTF_SM_ENTRY).
#pragma once

#include <string_view>

#include "mtf/common/sset_blk.h"
#include "services/record.h"

namespace MTF {

// A view of the 8 bytes in front of the entries.
class Set_Map_Hdr : private Record_View {
 public:
  static constexpr unsigned int fixed_size = 8;

  explicit Set_Map_Hdr(char* bytes) : Record_View(bytes) {}

  MTF_FIELD(unsigned int, media_family_id, 0)
  MTF_FIELD(unsigned short, set_count, 4)
};

// A view of an entry that lies elsewhere. Nothing may be read or set before set_buffer().
class SM_Entry {
 public:
  static constexpr unsigned int date_offset = 80;
  static constexpr unsigned int fixed_size = 91;

  // Views the `size` bytes at `data`, which must outlive the view. False, with the view as it was,
  // for null and for less than fixed_size.
  bool set_buffer(char* data, unsigned int size);

  MTF_FIELD(unsigned short, length, 0)  // the strings included
  MTF_FIELD(unsigned short, media_sequence_number, 2)
  MTF_FIELD(unsigned int, attributes, 4)  // of the SSET block's header
  MTF_FIELD(unsigned int, sset_attributes, 8)
  MTF_FIELD(unsigned long long, sset_pba, 12)
  MTF_FIELD(unsigned long long, fdd_pba, 20)
  MTF_FIELD(unsigned short, fdd_media_sequence_number, 28)
  MTF_FIELD(unsigned short, data_set_number, 30)
  MTF_FIELD(unsigned long long, format_logical_address, 32)
  MTF_FIELD(unsigned int, directory_count, 40)
  MTF_FIELD(unsigned int, file_count, 44)
  MTF_FIELD(unsigned int, corrupt_file_count, 48)
  MTF_FIELD(unsigned long long, displayable_size, 52)
  MTF_FIELD(unsigned short, volume_count, 60)
  MTF_FIELD(unsigned short, password_encryption_algorithm, 62)
  MTF_DATE_FIELD(media_write_date, date_offset)
  MTF_FIELD(signed char, time_zone, 85)
  MTF_FIELD(unsigned char, os_id, 86)
  MTF_FIELD(unsigned char, os_version, 87)
  MTF_FIELD(unsigned char, string_type, 88)
  MTF_FIELD(unsigned char, mtf_minor_version, 89)
  MTF_FIELD(unsigned char, media_catalog_version, 90)

  // Bytes that the entry of a data set takes.
  static unsigned int size_for(const SSet_Blk& blk);

  // Fills the entry from the block of its set: all but the counts and the place of the TFDD stream.
  // `seq` and `algorithm` are the media sequence number and the password encryption algorithm of
  // the media. A string for which the view has no room is left out.
  void set(const SSet_Blk& blk, unsigned short seq, unsigned short algorithm);

 private:
  char* bytes() { return bytes_; }
  const char* bytes() const { return bytes_; }
  void store_string(unsigned int address_offset, std::string_view text);

  char* bytes_ = nullptr;
  unsigned int size_ = 0;
};

}  // namespace MTF
