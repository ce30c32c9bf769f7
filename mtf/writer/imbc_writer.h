// The media based catalog of a media, as the block writers see it.
#pragma once

#include <string>

#include "mtf/common/dir_blk.h"
#include "mtf/common/end_blks.h"
#include "mtf/common/file_blk.h"
#include "mtf/common/pdat_blk.h"
#include "mtf/common/sset_blk.h"
#include "mtf/common/tape_blk.h"
#include "mtf/common/vol_blk.h"
#include "services/storage.h"

namespace MTF {

// Used by the thread of one task. The add operations are called in the order of the blocks on the
// media, when a block and its streams stand there.
class IMBC_Writer {
 public:
  virtual ~IMBC_Writer() = default;

  virtual bool open() = 0;
  virtual bool add_tape_blk(const Tape_Blk& blk) = 0;
  virtual bool add_sset_blk(const SSet_Blk& blk) = 0;
  virtual bool add_vol_blk(const Vol_Blk& blk) = 0;
  virtual bool add_dir_blk(const Dir_Blk& blk, const std::string& name) = 0;
  virtual bool add_file_blk(const File_Blk& blk, const std::string& name) = 0;
  virtual bool add_slnk_blk(const SLnk_Blk& blk, const std::string& name) = 0;
  virtual bool add_hlnk_blk(const HLnk_Blk& blk, const std::string& name) = 0;
  virtual bool add_devb_blk(const Devb_Blk& blk, const std::string& name) = 0;
  virtual bool add_pdat_blk(const PDat_Blk& blk, const std::string& name) = 0;
  virtual bool add_cfil_blk(const CFil_Blk& blk) = 0;
  // With the block complete, before it goes to the media.
  virtual bool add_eset_blk(const ESet_Blk& blk) = 0;
  // Writes the catalog, right behind the ESET block.
  virtual bool write(IWriter& writer) = 0;
};

}  // namespace MTF
