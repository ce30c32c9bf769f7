// A volume (MTF_VOLB).
#pragma once

#include "mtf/common/dblk.h"

namespace MTF {

// Bits of `volb_attributes`.
enum Volb_Attribute : unsigned int {
  volb_device_is_drive = 0x4,
};

class Vol_Blk : public DBLK {
 public:
  static constexpr unsigned int date_offset = 68;
  static constexpr unsigned short fixed_size = 73;

  Vol_Blk(Buffer& buffer, bool init);

  MTF_FIELD(unsigned int, volb_attributes, 52)
  MTF_DATE_FIELD(media_write_date, date_offset)

  // False, with a line at LM_ERROR, for a name that would carry the block past its first image_size
  // bytes.
  bool device_name(const std::string& name);
  bool machine_name(const std::string& name);

  // Valid until the block changes.
  std::string_view device_name() const { return view_at(56); }
  std::string_view volume_name() const { return view_at(60); }
  std::string_view machine_name() const { return view_at(64); }
};

}  // namespace MTF
