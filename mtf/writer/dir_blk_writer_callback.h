// Writes directories of a host's sources, with a CTEX stream.
#pragma once

#include "mtf/writer/dir_blk_writer.h"
#include "mtf/writer/ibackup_callback.h"

namespace MTF {

class Dir_Blk_Writer_Callback : public Dir_Blk_Writer {
 public:
  Dir_Blk_Writer_Callback(Ref_Ptr<IBackup_Callback> callback, Ref_Ptr<Event_Handler> handler);

  bool set_dir_blk(Dir_Blk& blk) override;
  bool write_content(IWriter& writer) override;
  bool open_dir() override;
  // False also without a callback.
  bool init(const Backup_Option* opt, Backup_Context* ctx, Ref_Ptr<Buffer> buf,
            IMBC_Writer* mbc_writer, Catalog_Writer* catalog) override;

  bool write_stat_stream(IWriter& writer);

 private:
  Ref_Ptr<IBackup_Callback> callback_;
  Callback_Stat stat_;  // of the current directory
  char separator_ = '\\';
};

}  // namespace MTF
