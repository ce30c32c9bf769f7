// A directory (MTF_DIRB).
#pragma once

#include "mtf/common/dblk.h"

namespace MTF {

class Dir_Blk : public DBLK {
 public:
  static constexpr unsigned int dates_offset = 56;  // four dates, one behind the other
  static constexpr unsigned short fixed_size = 84;

  Dir_Blk(Buffer& buffer, bool init);

  MTF_FIELD(unsigned int, dirb_attributes, 52)
  MTF_DATE_FIELD(last_modification_date, 56)
  MTF_DATE_FIELD(creation_date, 61)
  MTF_DATE_FIELD(backup_date, 66)
  MTF_DATE_FIELD(last_access_date, 71)
  MTF_FIELD(unsigned int, directory_id, 76)

  // False, without a line, for a name that would carry the block past its first image_size bytes.
  bool directory_name(const std::string& n);

  std::string directory_name() const { return string_at(80); }
};

}  // namespace MTF
