// Writes the host's pre-action data (PDAT): a block and whatever a handle gives up to its end.
#pragma once

#include <ace/OS_NS_unistd.h>

#include "mtf/catalog/catalog_helper.h"
#include "mtf/writer/dblk_writer.h"
#include "mtf/writer/nt_stream.h"

namespace MTF {

// Its length isn't known before it ends, so the data becomes a row of chunks of 1 MiB, of which the
// last is shorter and may be empty. Runs once in a job, on its first channel.
class PDat_Blk_Writer : public virtual DBLK_Writer {
 public:
  // `handle` is read to its end and stays open; while it has nothing to give, the channel waits for
  // it or for a cancel. `evt_handler` may be null.
  PDat_Blk_Writer(ACE_HANDLE handle, Ref_Ptr<Event_Handler> evt_handler);
  ~PDat_Blk_Writer() override = default;

  bool init(const Backup_Option* opt, Backup_Context* ctx, Ref_Ptr<Buffer> buf,
            IMBC_Writer* mbc_writer, Catalog_Writer* catalog) override;
  unsigned int type() const override { return block_pdat; }
  bool reset(char* buf, unsigned int size) override;
  // 0 or -1.
  int write(IWriter& writer) override;

 private:
  bool set_pdat_blk(PDat_Blk& blk);
  bool write_data(IWriter& writer);
  bool wait_for_data();
  bool write_chunk(bool is_end, IWriter& writer);

  ACE_HANDLE handle_;
  Ref_Ptr<Event_Handler> evt_handler_;
  Cat_PDat_Blk cat_blk_;
  Buffer block_buffer_;
  Buffer data_buffer_;
  std::string name_;
  Variable_Standard_Data_Stream data_stream_;
};

}  // namespace MTF
