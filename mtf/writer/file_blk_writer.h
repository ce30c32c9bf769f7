// Writes files (FILE): the block, its name stream where the name doesn't fit, its content, and the
// CFIL block of a file that could not be read to its end.
#pragma once

#include <functional>

#include "mtf/catalog/catalog_helper.h"
#include "mtf/writer/dblk_writer.h"
#include "oxbase/path.h"
#include "services/event_handler.h"

namespace MTF {

class Standard_Data_Stream;

// Fixes what happens around a file; a derived class examines, opens and reads it.
class File_Blk_Writer : public virtual DBLK_Writer {
 public:
  // `evt_handler` may be null; nothing is counted or reported then.
  explicit File_Blk_Writer(Ref_Ptr<Event_Handler> evt_handler);

  unsigned int type() const override { return block_file; }
  bool reset(char* buf, unsigned int size) override;
  int write(IWriter& writer) override;

  // Fills the block; false where the file can't be examined. A derived class calls the base first.
  virtual bool set_file_blk(File_Blk& blk);
  virtual bool write_file_blk(File_Blk& blk, IWriter& writer);
  // Writes everything that follows the block and its name stream: 0, -1 or a Content_Result.
  virtual int write_content(File_Blk& blk, IWriter& writer) = 0;
  // 0 open; 1 can't be opened, so the file is skipped; any other value ends write() with it.
  virtual int open_file() = 0;

  ~File_Blk_Writer() override = default;

 protected:
  // For init() of a derived class; false without memory.
  bool make_buffers();

  // Puts the next bytes of the file into data_buffer_, none at its end; false ends the job. Where
  // reading fails it may set corrupt_attributes_.
  using Read = std::function<bool()>;
  // Writes the content as one stream that declares `size` bytes: 0, -1 or content_corrupt. A file
  // that has more is cut there; with one that has less the stream is filled up and closed.
  int write_data_stream(Standard_Data_Stream& stream, unsigned long long size, const Read& read,
                        IWriter& writer);
  bool write_checksum_stream(unsigned int checksum, IWriter& writer);

  Cat_File_Blk cat_blk_;
  oxbase::Path_T<char> path_;
  std::string file_name_;
  Buffer block_buffer_;
  Buffer data_buffer_;
  unsigned long long file_space_ = 0;      // on its volume, in bytes; goes to the catalog
  unsigned long long corrupt_offset_ = 0;  // in the stream where reading stopped
  unsigned int corrupt_attributes_ = 0;
  unsigned short stream_count_ = 0;  // streams of this file completed so far
  Ref_Ptr<Event_Handler> evt_handler_;

 private:
  bool copy_data(Standard_Data_Stream& stream, unsigned long long size, const Read& read,
                 IWriter& writer);
  int close_out(Standard_Data_Stream& stream, IWriter& writer);
  int add_earlier_file();
  void note_first_name();
  int write_block_and_content(File_Blk& blk, IWriter& writer);
  void report_skip(const char* message);
  int end_corrupt(IWriter& writer);
  int add_to_catalogs(const File_Blk& blk);
};

}  // namespace MTF
