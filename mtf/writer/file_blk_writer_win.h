// Writes files read as backup records: every stream that they have.
#pragma once

#include <memory>

#include "mtf/writer/file_blk_writer.h"
#include "mtf/writer/nt_content_writer.h"

namespace MTF {

class File_Blk_Writer_Win : public File_Blk_Writer {
 public:
  // Reads the file itself, or what `source` gives in its place.
  explicit File_Blk_Writer_Win(Ref_Ptr<Event_Handler> evt_handler,
                               std::unique_ptr<platform::Record_Source> source = nullptr);

  bool set_file_blk(File_Blk& blk) override;
  int write_content(File_Blk& blk, IWriter& writer) override;
  int open_file() override;
  bool init(const Backup_Option* opt, Backup_Context* ctx, Ref_Ptr<Buffer> buf,
            IMBC_Writer* mbc_writer, Catalog_Writer* catalog) override;

 private:
  bool open_shadow();

  NT_Content_Writer content_writer_;
  std::wstring wide_path_;
  bool opened_ = false;
  int open_error_ = 0;  // why it can't be opened
  MTF_FS::Backup_Reader reader_;
};

}  // namespace MTF
