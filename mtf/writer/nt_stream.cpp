#include "mtf/writer/nt_stream.h"

#include <ace/Log_Msg.h>

#include <algorithm>
#include <cstring>

#include "mtf/common/checksum_stream.h"
#include "mtf/common/compression_stream.h"
#include "mtf/writer/dblk_writer.h"
#include "mtf/writer/ready_files.h"
#include "services/frame_pipeline.h"

namespace MTF {
namespace {

constexpr unsigned int sequence_modulus = 255;
// A shorter stream is compressed before threads would be there.
constexpr unsigned long long long_stream = 0x40000;

}  // namespace

NT_Stream_Base::NT_Stream_Base() : compression_buffer_(8) {}

NT_Stream_Base::~NT_Stream_Base() = default;

void NT_Stream_Base::reset_stream(unsigned long long length, unsigned short method, bool need_flush,
                                  int level) {
  reset();
  written_size_ = 0;
  current_size_ = 0;
  stream_length_ = length;
  checksum_.reset();
  Stream_Hdr header = hdr();
  header.length(length);
  need_flush_ = need_flush;
  unsigned short attributes = length != 0 ? mf_checksummed : 0;
  checksummed_ = length != 0;
  frame_sequence_ = 0;
  set_compressor(method, level);
  if (compressor_ != nullptr) {
    attributes |= mf_compressed;
    header.data_compression_algorithm(method);
  }
  framed_size_ = 0;
  set_pipeline();
  header.media_format_attributes(attributes);
}

void NT_Stream_Base::set_compressor(unsigned short method, int level) {
  if (method == compressor_method_) return;
  compressor_ = Compression_Factory::create(method, level);
  compressor_method_ = method;
  compressor_level_ = level;
  pipeline_.reset();
}

// Without a pipeline, for want of memory or threads, frames are compressed one by one.
void NT_Stream_Base::set_pipeline() {
  if (pipeline_ != nullptr) pipeline_->clear();
  is_pipelined_ =
      compressor_ != nullptr && compression_threads_ > 1 && stream_length_ > long_stream;
  if (!is_pipelined_) return;
  if (pipeline_ == nullptr) {
    pipeline_ = Frame_Pipeline::create(compressor_method_, compressor_level_, compression_threads_);
  }
  is_pipelined_ = pipeline_ != nullptr;
}

bool NT_Stream_Base::write_hdr(IWriter& writer) {
  if (!write_header(writer)) return false;
  written_size_ += Stream_Hdr::fixed_size;
  return true;
}

bool NT_Stream_Base::write_data(const Buffer& buffer, IWriter& writer) {
  if (buffer.size() == 0) return true;
  if (need_flush_ && !flush_once(writer)) return false;
  const bool compressed = (hdr().media_format_attributes() & mf_compressed) != 0;
  return compressed ? take_frame(buffer, writer) : write_plain(buffer, writer);
}

bool NT_Stream_Base::flush_once(IWriter& writer) {
  if (!writer.flush()) {
    ACE_ERROR_RETURN(
        (LM_ERROR, ACE_TEXT("Failed to flush before write 0x%X stream data\n"), hdr().id()), false);
  }
  need_flush_ = false;
  return true;
}

bool NT_Stream_Base::write_plain(const Buffer& buffer, IWriter& writer) {
  if (writer.write(buffer.data(), buffer.size()) != buffer.size()) return false;
  if (checksummed_) checksum_.calc(buffer.data(), buffer.size(), false);
  current_size_ += buffer.size();
  written_size_ += buffer.size();
  return true;
}

bool NT_Stream_Base::take_frame(const Buffer& buffer, IWriter& writer) {
  if (is_pipelined_) {
    if (pipeline_->is_full() && !write_oldest_frame(writer)) return false;
    if (!pipeline_->put(buffer)) return false;
  } else {
    const Buffer* const compressed = compress(buffer);
    if (compressed == nullptr || !write_frame(buffer, *compressed, writer)) return false;
  }
  current_size_ += buffer.size();
  return true;
}

// Null where that fails.
const Buffer* NT_Stream_Base::compress(const Buffer& buffer) {
  const Buffer* const ready =
      ready_files_ != nullptr ? ready_files_->find_compressed(buffer) : nullptr;
  if (ready != nullptr) return ready;
  const bool done =
      compressor_ != nullptr && compressor_->compress(buffer, compression_buffer_) >= 0;
  return done ? &compression_buffer_ : nullptr;
}

bool NT_Stream_Base::write_oldest_frame(IWriter& writer) {
  const Frame_Pipeline::Frame& frame = pipeline_->front();
  if (frame.failed || !write_frame(frame.data, frame.compressed, writer)) {
    return false;
  }
  pipeline_->pop();
  return true;
}

bool NT_Stream_Base::write_frame(const Buffer& data, const Buffer& compressed, IWriter& writer) {
  Compression_Stream frame(hdr().media_format_attributes());
  frame.hdr().remaining_stream_size(stream_length_ - framed_size_);
  frame.hdr().sequence_number(
      static_cast<unsigned char>(static_cast<unsigned char>(++frame_sequence_) % sequence_modulus));
  frame.hdr().uncompressed_size(data.size());
  // Data that doesn't shrink is stored as it came.
  const Buffer& stored = data.size() <= compressed.size() ? data : compressed;
  if (frame.write(stored, writer) == IWriter::failed) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to write compress STAN stream\n")), false);
  }
  checksum_.calc(frame.header(), Compression_Frame_Header::fixed_size, false);
  checksum_.calc(stored.data(), stored.size(), false);
  framed_size_ += data.size();
  written_size_ += Compression_Frame_Header::fixed_size + stored.size();
  return true;
}

bool NT_Stream_Base::end_stream(IWriter& writer) {
  while (is_pipelined_ && !pipeline_->is_empty()) {
    if (!write_oldest_frame(writer)) return false;
  }
  if (current_size_ != stream_length_) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Invalid current size: %d, stream length: %d\n"),
                      static_cast<int>(current_size_), static_cast<int>(stream_length_)),
                     false);
  }
  if (checksummed_) checksum_.calc(nullptr, 0, true);
  return true;
}

Standard_Data_Stream::Standard_Data_Stream(Ref_Ptr<Event_Handler> evt_handler)
    : evt_handler_(evt_handler) {}

void Standard_Data_Stream::reset_stream(unsigned long long length, unsigned short method,
                                        int level) {
  NT_Stream_Base::reset_stream(length, method, true, level);
  hdr().id(stream_stan);
  if (length == 0) hdr().file_system_attributes(fs_empty_data);
}

bool Standard_Data_Stream::write_data(const Buffer& buffer, IWriter& writer) {
  if (!NT_Stream_Base::write_data(buffer, writer)) return false;
  if (evt_handler_.get() == nullptr) return true;
  evt_handler_->add_size(channel_, buffer.size());
  return !evt_handler_->is_canceling();
}

bool Standard_Data_Stream::end_stream(IWriter& writer) {
  if (!NT_Stream_Base::end_stream(writer)) return false;
  if (evt_handler_.get() != nullptr) evt_handler_->add_processed_count(1);
  return true;
}

void Variable_Standard_Data_Stream::reset_stream(unsigned long long length, bool is_end,
                                                 unsigned short method, int level) {
  Standard_Data_Stream::reset_stream(length, method, level);
  Stream_Hdr header = hdr();
  header.media_format_attributes(static_cast<unsigned short>(
      header.media_format_attributes() | (is_end ? mf_variable_end : mf_variable)));
}

bool fill_stream(Backup_Context& ctx, NT_Stream_Base& stream, Buffer& buffer, IWriter& writer) {
  unsigned long long remaining = stream.stream_length() - stream.current_size();
  std::memset(buffer.data(), 0, buffer.capacity());
  while (remaining != 0) {
    const auto size =
        static_cast<unsigned int>(std::min<unsigned long long>(buffer.capacity(), remaining));
    buffer.size(size);
    remaining -= size;
    if (!stream.write_data(buffer, writer)) return false;
  }
  if (!stream.end_stream(writer)) return false;
  ctx.add_length(stream.written_size());
  return true;
}

bool write_csum_stream(Backup_Context& ctx, const Ref_Ptr<Buffer>& buf, unsigned int checksum,
                       IWriter& writer) {
  Checksum_Stream stream(buf);
  stream.checksum(checksum);
  return write_small_stream(ctx, stream, writer);
}

}  // namespace MTF
