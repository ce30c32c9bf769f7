// The blocks that close things: a corrupt file (MTF_CFIL), a data set (MTF_ESET), a media
// (MTF_EOTM).
#pragma once

#include "mtf/common/dblk.h"

namespace MTF {

class CFil_Blk : public DBLK {
 public:
  static constexpr unsigned short fixed_size = 74;

  CFil_Blk(Buffer& buffer, bool init);

  MTF_FIELD(unsigned int, cfil_attributes, 52)
  MTF_FIELD(unsigned long long, stream_offset, 64)
  MTF_FIELD(unsigned short, stream_number, 72)
};

// Bits of `eset_attributes`.
enum ESet_Attribute : unsigned int {
  eset_compressed = 0x2,
  eset_normal_backup = 0x4,
};

class ESet_Blk : public DBLK {
 public:
  static constexpr unsigned short fixed_size = 85;

  ESet_Blk(Buffer& buffer, bool init);

  MTF_FIELD(unsigned int, eset_attributes, 52)
  MTF_FIELD(unsigned int, corrupt_file_count, 56)
  MTF_FIELD(unsigned long long, fdd_pba, 60)
  MTF_FIELD(unsigned long long, sm_pba, 68)
  MTF_FIELD(unsigned short, fdd_media_sequence_number, 76)
  MTF_FIELD(unsigned short, data_set_number, 78)
  MTF_DATE_FIELD(media_write_date, 80)
};

class EOTM_Blk : public DBLK {
 public:
  static constexpr unsigned short fixed_size = 60;

  EOTM_Blk(Buffer& buffer, bool init);

  MTF_FIELD(unsigned long long, last_eset_pba, 52)
};

}  // namespace MTF
