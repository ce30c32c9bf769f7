// Writes files read as plain bytes: STAN, CSUM and CTEX streams.
#pragma once

#include "mtf/writer/file_blk_writer.h"
#include "mtf/writer/ready_files.h"
#include "mtf/writer/sparse_data_stream.h"
#include "services/file_buf.h"

namespace MTF {

class File_Blk_Writer_Unix : public File_Blk_Writer {
 public:
  explicit File_Blk_Writer_Unix(Ref_Ptr<Event_Handler> evt_handler);

  bool set_file_blk(File_Blk& blk) override;
  int write_content(File_Blk& blk, IWriter& writer) override;
  int open_file() override;
  bool init(const Backup_Option* opt, Backup_Context* ctx, Ref_Ptr<Buffer> buf,
            IMBC_Writer* mbc_writer, Catalog_Writer* catalog) override;

  bool write_stat_stream(IWriter& writer);
  bool write_checksum_stream(unsigned int checksum, IWriter& writer);

 private:
  int write_data(unsigned long long size, IWriter& writer);
  void open();
  const platform::File_Facts& facts() const;
  bool read();

  Standard_Data_Stream data_stream_;
  Sparse_Data_Stream sparse_stream_;  // gets no ranges: holes are read as zeros
  MTF_FS::ifilebuf file_;
  const Ready_Files::File* ready_ = nullptr;  // takes the place of file_
  bool opened_ = false;
  int open_error_ = 0;  // why it can't be opened
  std::wstring wide_path_;
};

}  // namespace MTF
