// The block that opens a data set (MTF_SSET).
#pragma once

#include "mtf/common/dblk.h"

namespace MTF {

enum SSet_Attribute : unsigned int {
  sset_compressed = 0x2,
  sset_normal_backup = 0x4,
  sset_incremental_backup = 0x10,
};

class SSet_Blk : public DBLK {
 public:
  static constexpr unsigned int date_offset = 88;
  static constexpr unsigned short fixed_size = 98;

  SSet_Blk(Buffer& buffer, bool init);

  MTF_FIELD(unsigned int, sset_attributes, 52)
  MTF_FIELD(unsigned short, data_set_number, 62)
  MTF_FIELD(unsigned long long, physical_block_address, 80)
  MTF_DATE_FIELD(media_write_date, date_offset)
  MTF_FIELD(unsigned char, software_major_version, 93)
  MTF_FIELD(unsigned char, software_minor_version, 94)
  MTF_FIELD(signed char, time_zone, 95)
  MTF_FIELD(unsigned char, mtf_minor_version, 96)
  MTF_FIELD(unsigned char, media_catalog_version, 97)

  unsigned short software_compression_algorithm() const;
  // A method other than 0 also sets sset_compressed in the attributes.
  void software_compression_algorithm(unsigned short method);

  // Valid until the block changes.
  std::string_view data_set_name() const { return view_at(64); }
  std::string_view data_set_description() const { return view_at(68); }
  std::string_view data_set_password() const { return view_at(72); }
  std::string_view user_name() const { return view_at(76); }

  unsigned short data_set_name_size() const { return string_size_at(64); }
  unsigned short data_set_description_size() const { return string_size_at(68); }
  unsigned short data_set_password_size() const { return string_size_at(72); }
  unsigned short user_name_size() const { return string_size_at(76); }
};

}  // namespace MTF
