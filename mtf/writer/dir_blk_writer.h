// Writes directories (DIRB): the block, its name stream where the name doesn't fit, its content.
#pragma once

#include "mtf/catalog/catalog_helper.h"
#include "mtf/writer/dblk_writer.h"
#include "services/event_handler.h"

namespace MTF {

// Fixes the order of the steps; a derived class looks at the real directory. Every directory
// becomes the current one of its channel.
class Dir_Blk_Writer : public virtual DBLK_Writer {
 public:
  // `evt_handler` may be null; nothing is reported then.
  explicit Dir_Blk_Writer(Ref_Ptr<Event_Handler> evt_handler);

  unsigned int type() const override { return block_dirb; }
  bool reset(char* buf, unsigned int size) override;
  int write(IWriter& writer) override;

  // Fills the block; false where the directory can't be examined. A derived class calls the base
  // first.
  virtual bool set_dir_blk(Dir_Blk& blk);
  virtual bool write_dir_blk(Dir_Blk& blk, IWriter& writer);
  // Writes what follows the block and its name stream.
  virtual bool write_content(IWriter& writer) = 0;
  virtual bool open_dir() = 0;

  ~Dir_Blk_Writer() override = default;

 protected:
  // For init() of a derived class; false without memory.
  bool make_buffers();

  Cat_Dir_Blk cat_blk_;
  std::string dir_name_;            // as the catalog block has it, NUL between the components
  std::string printable_dir_name_;  // with a backslash for each NUL byte
  Buffer block_buffer_;
  Buffer data_buffer_;               // for what a derived class reads
  unsigned long long dir_size_ = 0;  // goes into the catalog
  Ref_Ptr<Event_Handler> evt_handler_;

 private:
  int skip();
  bool write_name_stream(const Dir_Blk& blk, IWriter& writer);
};

}  // namespace MTF
