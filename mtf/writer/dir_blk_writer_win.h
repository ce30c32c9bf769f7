// Writes directories of the local file system.
#pragma once

#include <memory>

#include "mtf/writer/dir_blk_writer.h"
#include "mtf/writer/nt_content_writer.h"

namespace MTF {

// The content of a directory is its backup records; in a plain job it has none.
class Dir_Blk_Writer_Win : public Dir_Blk_Writer {
 public:
  // Reads the directory itself, or what `source` gives in its place.
  explicit Dir_Blk_Writer_Win(Ref_Ptr<Event_Handler> evt_handler,
                              std::unique_ptr<platform::Record_Source> source = nullptr);

  bool set_dir_blk(Dir_Blk& blk) override;
  bool write_content(IWriter& writer) override;
  bool open_dir() override;
  bool init(const Backup_Option* opt, Backup_Context* ctx, Ref_Ptr<Buffer> buf,
            IMBC_Writer* mbc_writer, Catalog_Writer* catalog) override;

 private:
  NT_Content_Writer content_writer_;
  std::wstring wide_path_;
  MTF_FS::Backup_Reader reader_;
};

}  // namespace MTF
