// Writes files of a host's sources: STAN, CSUM and CTEX streams.
#pragma once

#include "mtf/writer/file_blk_writer.h"
#include "mtf/writer/ibackup_callback.h"
#include "mtf/writer/nt_stream.h"

namespace MTF {

// Examines a file through the callback of its task and reads it through one reader of that
// callback's, which stays open until the next file is opened.
class File_Blk_Writer_Callback : public File_Blk_Writer {
 public:
  File_Blk_Writer_Callback(Ref_Ptr<Event_Handler> handler, Ref_Ptr<IBackup_Callback> callback);

  bool set_file_blk(File_Blk& blk) override;
  // Asks the host for its last word on the block first; false where it refuses.
  bool write_file_blk(File_Blk& blk, IWriter& writer) override;
  int write_content(File_Blk& blk, IWriter& writer) override;
  int open_file() override;
  // False also without a callback and where it makes no reader.
  bool init(const Backup_Option* opt, Backup_Context* ctx, Ref_Ptr<Buffer> buf,
            IMBC_Writer* mbc_writer, Catalog_Writer* catalog) override;

  bool write_stat_stream(IWriter& writer);
  using File_Blk_Writer::write_checksum_stream;

 private:
  bool read();

  Standard_Data_Stream data_stream_;
  Ref_Ptr<IBackup_Callback> callback_;
  Ref_Ptr<IFile_Reader> reader_;
  Callback_Stat stat_;  // of the current file
};

}  // namespace MTF
