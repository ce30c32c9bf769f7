// Writes the backup records of a file or directory, each as the stream of its kind.
#pragma once

#include "mtf/writer/dblk_writer.h"
#include "mtf/writer/nt_stream_factory.h"
#include "services/backup_reader.h"

namespace MTF {

// Owned by one block writer, on its task's thread.
class NT_Content_Writer {
 public:
  // `evt_handler` may be null.
  explicit NT_Content_Writer(Ref_Ptr<Event_Handler> evt_handler);
  virtual ~NT_Content_Writer() = default;

  // Stores what the writer works with; none of it is owned but `hdr_buf`, the buffer of the small
  // streams. `data_buf` is read into, as much at a time as it has room for. `pre_read` reads each
  // record whole before its stream is begun. False, with a line in the log, if anything is missing.
  bool init(const Backup_Option* opt, Backup_Context* ctx, Ref_Ptr<Buffer> hdr_buf,
            Buffer* data_buf, bool pre_read);

  // Writes all records that `reader` still has: 0, -1 or a Content_Result.
  int write(MTF_FS::Backup_Reader& reader, IWriter& writer);

  // Of the last write(): the bytes that the stream that failed had by then, the bits of the CFIL
  // block, and the records written whole.
  unsigned long long corrupt_offset() const { return corrupt_offset_; }
  unsigned int corrupt_attributes() const { return corrupt_attributes_; }
  unsigned short stream_count() const { return stream_count_; }

 private:
  static constexpr int done = 0;
  static constexpr int failed = -1;
  static constexpr int ended = 1;  // there is no further record

  int read_stream_id(MTF_FS::Backup_Reader& reader, WIN32_STREAM_ID& id);
  int write_record(MTF_FS::Backup_Reader& reader, const WIN32_STREAM_ID& id, IWriter& writer);
  template <class Source>
  int write_nt_stream(Source& source, const WIN32_STREAM_ID& id, IWriter& writer);
  template <class Source>
  int read_sparse_offset(Source& source, const WIN32_STREAM_ID& id, unsigned long long& offset);
  template <class Source>
  int write_name(Source& source, const WIN32_STREAM_ID& id, NT_Stream_Base& stream,
                 IWriter& writer);
  template <class Source>
  bool copy_data(Source& source, unsigned long long size, NT_Stream_Base& stream, IWriter& writer);
  int end_stream(NT_Stream_Base& stream, IWriter& writer);
  int close_out(NT_Stream_Base& stream, IWriter& writer);

  const Backup_Option* opt_ = nullptr;
  Backup_Context* ctx_ = nullptr;
  Ref_Ptr<Buffer> hdr_buf_;
  Buffer* data_buf_ = nullptr;
  bool pre_read_ = false;
  MTF_FS::Pre_Backup_Reader pre_reader_;
  NT_Stream_Factory factory_;
  unsigned long long corrupt_offset_ = 0;
  unsigned int corrupt_attributes_ = 0;
  unsigned short stream_count_ = 0;
};

}  // namespace MTF
