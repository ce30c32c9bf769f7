// A file (MTF_FILE), and the blocks of the system's own that have its shape.
#pragma once

#include "mtf/common/dblk.h"

namespace MTF {

class File_Shaped_Blk : public DBLK {
 public:
  static constexpr unsigned int dates_offset = 56;  // four dates, one behind the other
  static constexpr unsigned short fixed_size = 88;

  MTF_FIELD(unsigned int, file_attributes, 52)
  MTF_DATE_FIELD(last_modification_date, 56)
  MTF_DATE_FIELD(creation_date, 61)
  MTF_DATE_FIELD(backup_date, 66)
  MTF_DATE_FIELD(last_access_date, 71)
  MTF_FIELD(unsigned int, directory_id, 76)
  MTF_FIELD(unsigned int, file_id, 80)

  // The image grows for the name. False, without a line, if it can't.
  bool file_name(const std::string& n);

  std::string file_name() const { return string_at(84); }

 protected:
  File_Shaped_Blk(Buffer& buffer, bool init, unsigned int type);
};

class File_Blk : public File_Shaped_Blk {
 public:
  File_Blk(Buffer& buffer, bool init) : File_Shaped_Blk(buffer, init, block_file) {}
};

// A further name of a hard-linked file.
class HLnk_Blk : public File_Shaped_Blk {
 public:
  HLnk_Blk(Buffer& buffer, bool init) : File_Shaped_Blk(buffer, init, block_hlnk) {}
};

// A symbolic link.
class SLnk_Blk : public File_Shaped_Blk {
 public:
  SLnk_Blk(Buffer& buffer, bool init) : File_Shaped_Blk(buffer, init, block_slnk) {}
};

// A device file.
class Devb_Blk : public File_Shaped_Blk {
 public:
  Devb_Blk(Buffer& buffer, bool init) : File_Shaped_Blk(buffer, init, block_devb) {}
};

}  // namespace MTF
