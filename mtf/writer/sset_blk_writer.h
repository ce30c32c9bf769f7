// Writes the block that opens a data set, and behind it the stream with the job's metadata.
#pragma once

#include "mtf/writer/data_set_conf.h"
#include "mtf/writer/dblk_writer.h"
#include "services/metadata.h"

namespace MTF {

// Works from no catalog block: the data set calls write() once, before the source is read.
class SSet_Blk_Writer : public DBLK_Writer {
 public:
  // Neither is owned; neither may change while the job runs.
  SSet_Blk_Writer(const Metadata& metadata, const Data_Set_Conf& conf);

  unsigned int type() const override { return block_sset; }
  bool reset(char* buf, unsigned int size) override;
  int write(IWriter& writer) override;

  bool set_sset_blk(SSet_Blk& blk);
  bool write_sset_blk(SSet_Blk& blk, IWriter& writer);
  bool write_meta_stream(IWriter& writer);

  // Of the block, once set_sset_blk() has run: its time in seconds, its address, and its position
  // in bytes.
  long long date() const { return date_; }
  unsigned long long sset_fla() const { return sset_fla_; }
  unsigned long long sset_off() const { return sset_off_; }

 private:
  const Metadata& metadata_;
  const Data_Set_Conf& conf_;
  Buffer block_buffer_;
  unsigned long long sset_off_ = 0;
  unsigned long long sset_fla_ = 0;
  long long date_ = 0;
};

}  // namespace MTF
