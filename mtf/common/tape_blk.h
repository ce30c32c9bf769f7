// The block that opens a media (MTF_TAPE).
#pragma once

#include "mtf/common/dblk.h"

namespace MTF {

enum Tape_Attribute : unsigned int {
  tape_soft_filemarks = 0x1,
  tape_has_description = 0x2,  // the host gave a media description
};

class Tape_Blk : public DBLK {
 public:
  static constexpr unsigned short fixed_size = 94;

  Tape_Blk(Buffer& buffer, bool init);

  MTF_FIELD(unsigned int, media_family_id, 52)
  MTF_FIELD(unsigned int, tape_attributes, 56)
  MTF_FIELD(unsigned short, media_sequence_number, 60)
  MTF_FIELD(unsigned short, password_encryption_algorithm, 62)
  MTF_FIELD(unsigned short, soft_filemark_block_size, 64)
  MTF_FIELD(unsigned short, media_based_catalog_type, 66)
  MTF_FIELD(unsigned short, format_logical_block_size, 84)
  MTF_DATE_FIELD(media_date, 88)
  MTF_FIELD(unsigned char, mtf_major_version, 93)

  // Each is left out, with a line at LM_WARNING, where it would carry the block past its first
  // image_size bytes.
  void media_name(const std::string& name);
  void media_description(const std::string& text);
  void software_name(const std::string& name);

  std::string media_name() const { return string_at(68); }
  std::string media_description() const { return string_at(72); }
  std::string software_name() const { return string_at(80); }
};

}  // namespace MTF
