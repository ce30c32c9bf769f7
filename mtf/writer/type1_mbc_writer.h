// The media based catalog of type 1: TFDD stream and TSMP stream behind the ESET block, and a
// second ESET block that says where they stand.
#pragma once

#include "mtf/writer/backup_context.h"
#include "mtf/writer/backup_option.h"
#include "mtf/writer/imbc_writer.h"
#include "mtf/writer/tfdd_stream.h"
#include "mtf/writer/tsmp_stream.h"

namespace MTF {

// For a media of one data set. The two streams grow in local files of the job and are copied to the
// media at the end.
class Type1_MBC_Writer : public IMBC_Writer {
 public:
  // Neither is owned; both must outlive the writer. The position in `ctx` is that of the media.
  Type1_MBC_Writer(const Backup_Option* opt, Backup_Context* ctx);

  bool open() override;
  bool add_tape_blk(const Tape_Blk& blk) override;
  bool add_sset_blk(const SSet_Blk& blk) override;
  bool add_vol_blk(const Vol_Blk& blk) override;
  bool add_dir_blk(const Dir_Blk& blk, const std::string& name) override;
  bool add_file_blk(const File_Blk& blk, const std::string& name) override;
  bool add_slnk_blk(const SLnk_Blk& blk, const std::string& name) override;
  bool add_hlnk_blk(const HLnk_Blk& blk, const std::string& name) override;
  bool add_devb_blk(const Devb_Blk& blk, const std::string& name) override;
  bool add_pdat_blk(const PDat_Blk& blk, const std::string& name) override;
  bool add_cfil_blk(const CFil_Blk& blk) override;
  // Ends the TFDD stream and keeps a copy of the block.
  bool add_eset_blk(const ESet_Blk& blk) override;
  // The position must be on a physical block boundary.
  bool write(IWriter& writer) override;

 private:
  // Moves the position by what a write gave; false if it failed.
  bool written(long long count);

  const Backup_Option* opt_;
  Backup_Context* ctx_;
  TFDD_Stream tfdd_;
  TSMP_Stream tsmp_;
  Buffer eset_copy_;
};

}  // namespace MTF
