// The engine of the data streams: header, payload plain or in compression frames, running checksum.
//
// For one stream: write_to_stream_align, reset_stream, write_hdr, any number of write_data,
// end_stream, then the context's add_length(written_size()), and a CSUM stream if checksummed().
#pragma once

#include <memory>

#include "mtf/common/stream.h"
#include "mtf/writer/backup_context.h"
#include "services/checksum.h"
#include "services/compression.h"
#include "services/event_handler.h"

namespace MTF {

class Frame_Pipeline;
class Ready_Files;

// Belongs to one block writer. The objects are reused: reset_stream starts each stream.
class NT_Stream_Base : public Stream {
 public:
  NT_Stream_Base();
  ~NT_Stream_Base() override;

  // Readies the object for a stream of `length` payload bytes before compression by `method`, a
  // Compression_Method. `need_flush` flushes the writer before the first payload byte. `level` is
  // looked at when the method changes.
  void reset_stream(unsigned long long length, unsigned short method, bool need_flush, int level);

  // How many threads compress the frames of a long stream; 1, as from the start, is the caller's
  // alone. The bytes of a stream are the same with any number. With several a frame may be written,
  // or its failure told, with one of the next ones or at the end.
  void set_compression_threads(int threads) { compression_threads_ = threads; }

  // Where a frame may be found compressed; null, as from the start, for nowhere. Not owned.
  void set_ready_files(const Ready_Files* files) { ready_files_ = files; }

  // Each is false when the writer took less than it was given, or as told there.
  virtual bool write_hdr(IWriter& writer);
  // Takes the whole content of `buffer` as payload; under compression it is one frame. False also
  // when the compressor fails.
  virtual bool write_data(const Buffer& buffer, IWriter& writer);
  // Closes the stream; false, with a line at LM_ERROR, if its length was not reached.
  virtual bool end_stream(IWriter& writer);

  unsigned long long written_size() const { return written_size_; }  // bytes on the media
  unsigned long long current_size() const { return current_size_; }  // payload taken in so far
  unsigned long long stream_length() const { return stream_length_; }
  bool checksummed() const { return checksummed_; }
  unsigned int checksum() const { return checksum_.checksum(); }

 private:
  bool flush_once(IWriter& writer);
  bool write_plain(const Buffer& buffer, IWriter& writer);
  bool take_frame(const Buffer& buffer, IWriter& writer);
  const Buffer* compress(const Buffer& buffer);
  bool write_oldest_frame(IWriter& writer);
  bool write_frame(const Buffer& data, const Buffer& compressed, IWriter& writer);
  void set_compressor(unsigned short method, int level);
  void set_pipeline();

  unsigned long long written_size_ = 0;
  unsigned long long current_size_ = 0;
  unsigned long long stream_length_ = 0;
  bool need_flush_ = false;
  bool checksummed_ = false;
  Checksum_Calculator checksum_;
  Buffer compression_buffer_;
  std::unique_ptr<Compressor> compressor_;
  unsigned char frame_sequence_ = 0;
  unsigned short compressor_method_ = 0;
  int compressor_level_ = 0;
  int compression_threads_ = 1;
  const Ready_Files* ready_files_ = nullptr;
  std::unique_ptr<Frame_Pipeline> pipeline_;  // made for the first long stream
  bool is_pipelined_ = false;                 // the stream's frames go through it
  unsigned long long framed_size_ = 0;        // payload in the frames that were written
};

// File content of a known length (STAN). Counts as progress, and sees a cancel as a failed write.
class Standard_Data_Stream : public NT_Stream_Base {
 public:
  // `evt_handler` may be null.
  explicit Standard_Data_Stream(Ref_Ptr<Event_Handler> evt_handler);

  void reset_stream(unsigned long long length, unsigned short method, int level);
  void set_channel(unsigned long long channel) { channel_ = channel; }

  bool write_data(const Buffer& buffer, IWriter& writer) override;
  bool end_stream(IWriter& writer) override;

 private:
  Ref_Ptr<Event_Handler> evt_handler_;
  unsigned long long channel_ = 0;
};

// Content whose length isn't known before it ends: a row of chunks, each a complete stream.
class Variable_Standard_Data_Stream : public Standard_Data_Stream {
 public:
  using Standard_Data_Stream::Standard_Data_Stream;

  // `length` is that of the chunk; `is_end` marks the last one, which may be empty.
  void reset_stream(unsigned long long length, bool is_end, unsigned short method, int level);
};

// Fills a stream whose source ran dry with zeros up to its declared length and ends it, so that the
// next block stays where a reader expects it. Uses the capacity of `buffer`.
bool fill_stream(Backup_Context& ctx, NT_Stream_Base& stream, Buffer& buffer, IWriter& writer);

// Writes the CSUM stream behind a stream, alignment included, with the data in `buf`. The code of a
// failure is the caller's to set.
bool write_csum_stream(Backup_Context& ctx, const Ref_Ptr<Buffer>& buf, unsigned int checksum,
                       IWriter& writer);

}  // namespace MTF
