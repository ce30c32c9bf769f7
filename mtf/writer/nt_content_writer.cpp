#include "mtf/writer/nt_content_writer.h"

#include <ace/Log_Msg.h>

#include <algorithm>

#include "mtf/writer/wide_path.h"
#include "services/assertion.h"
#include "services/text.h"

namespace MTF {
namespace {

constexpr unsigned int name_size_width = 4;

// The CFIL bits of a Windows error number.
unsigned int windows_error_attributes(int error) {
  constexpr int error_read_fault = 30;
  constexpr int error_lock_violation = 33;
  constexpr int error_io_device = 1117;
  switch (error) {
    case error_read_fault:
    case error_io_device:
      return corrupt_unreadable;
    case error_lock_violation:
      return corrupt_in_use;
    default:
      return corrupt_length_change;
  }
}

}  // namespace

NT_Content_Writer::NT_Content_Writer(Ref_Ptr<Event_Handler> evt_handler) : factory_(evt_handler) {}

bool NT_Content_Writer::init(const Backup_Option* opt, Backup_Context* ctx, Ref_Ptr<Buffer> hdr_buf,
                             Buffer* data_buf, bool pre_read) {
  MTF_ASSERT_NOT_NULL(opt, false);
  MTF_ASSERT_NOT_NULL(ctx, false);
  MTF_ASSERT_NOT_NULL(hdr_buf.get(), false);
  MTF_ASSERT_NOT_NULL(data_buf, false);
  opt_ = opt;
  ctx_ = ctx;
  hdr_buf_ = hdr_buf;
  data_buf_ = data_buf;
  pre_read_ = pre_read;
  factory_.init(hdr_buf, *ctx, opt->compression_threads);
  corrupt_offset_ = 0;
  corrupt_attributes_ = 0;
  stream_count_ = 0;
  return true;
}

int NT_Content_Writer::write(MTF_FS::Backup_Reader& reader, IWriter& writer) {
  corrupt_offset_ = 0;
  corrupt_attributes_ = 0;
  stream_count_ = 0;
  for (;;) {
    WIN32_STREAM_ID id;
    const int step = read_stream_id(reader, id);
    if (step == ended) return done;
    if (step != done) return step;
    const int result = write_record(reader, id, writer);
    if (result != done) return result;
    ++stream_count_;
  }
}

int NT_Content_Writer::read_stream_id(MTF_FS::Backup_Reader& reader, WIN32_STREAM_ID& id) {
  unsigned char bytes[platform::stream_id_size];
  unsigned int count = sizeof bytes;
  if (!reader.read(bytes, count)) {
    corrupt_attributes_ = windows_error_attributes(reader.last_error());
    return content_corrupt;
  }
  if (count == 0) return ended;
  if (count != sizeof bytes) {
    corrupt_attributes_ = corrupt_length_change;
    ACE_ERROR_RETURN(
        (LM_ERROR, ACE_TEXT("Failed to read WIN32_STREAM_ID read bytes: %d, actual: %d, path=%s\n"),
         static_cast<int>(sizeof bytes), count, shown_path(reader.path()).c_str()),
        content_corrupt);
  }
  id = platform::load_stream_id(reinterpret_cast<const char*>(bytes));
  return done;
}

int NT_Content_Writer::write_record(MTF_FS::Backup_Reader& reader, const WIN32_STREAM_ID& id,
                                    IWriter& writer) {
  if (!pre_read_) return write_nt_stream(reader, id, writer);
  if (!pre_reader_.pre_read(reader, id)) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to read record %d of '%s'\n"), stream_count_ + 1,
                      shown_path(reader.path()).c_str()),
                     content_corrupt);
  }
  const int result = write_nt_stream(pre_reader_, id, writer);
  if (result != content_corrupt) return result;
  ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to write_nt_stream with pre_read, path=%s\n"),
                    shown_path(reader.path()).c_str()),
                   failed);
}

template <class Source>
int NT_Content_Writer::write_nt_stream(Source& source, const WIN32_STREAM_ID& id, IWriter& writer) {
  unsigned long long remaining = id.Size;
  unsigned long long offset = 0;
  if (id.dwStreamId == BACKUP_SPARSE_BLOCK) {
    const int result = read_sparse_offset(source, id, offset);
    if (result != done) return result;
    remaining -= sizeof offset;
  }
  NT_Stream_Base* const stream =
      factory_.get_stream(id, offset, opt_->compression_method, opt_->compression_level);
  if (stream == nullptr) return content_unknown;
  if (!write_to_stream_align(*ctx_, writer) || !stream->write_hdr(writer)) return failed;
  if (id.dwStreamId == BACKUP_ALTERNATE_DATA) {
    const int result = write_name(source, id, *stream, writer);
    if (result != done) return result;
  }
  if (!copy_data(source, remaining, *stream, writer)) return failed;
  const bool whole = stream->current_size() == stream->stream_length();
  return whole ? end_stream(*stream, writer) : close_out(*stream, writer);
}

template <class Source>
int NT_Content_Writer::read_sparse_offset(Source& source, const WIN32_STREAM_ID& id,
                                          unsigned long long& offset) {
  if (id.Size < sizeof offset) {
    corrupt_attributes_ = corrupt_length_change;
    return content_corrupt;
  }
  unsigned char bytes[sizeof offset];
  unsigned int count = sizeof bytes;
  if (!source.read(bytes, count)) {
    corrupt_attributes_ = windows_error_attributes(source.last_error());
    return content_corrupt;
  }
  if (count != sizeof bytes) {
    corrupt_attributes_ = corrupt_length_change;
    ACE_ERROR_RETURN(
        (LM_ERROR,
         ACE_TEXT("Failed to read BACKUP_SPARSE_BLOCK offset, read bytes: %d, actual: %d\n"),
         static_cast<int>(sizeof bytes), count),
        content_corrupt);
  }
  offset = load_le<unsigned long long>(bytes);
  return done;
}

// The name goes in front of the data of an alternate stream, behind its size.
template <class Source>
int NT_Content_Writer::write_name(Source& source, const WIN32_STREAM_ID& id, NT_Stream_Base& stream,
                                  IWriter& writer) {
  const unsigned int whole = id.dwStreamNameSize + name_size_width;
  if (whole < name_size_width || !data_buf_->expand(whole)) return failed;
  store_le(data_buf_->data(), id.dwStreamNameSize);
  unsigned int count = id.dwStreamNameSize;
  if (!source.read(reinterpret_cast<unsigned char*>(data_buf_->data()) + name_size_width, count)) {
    corrupt_attributes_ = windows_error_attributes(source.last_error());
    return close_out(stream, writer);
  }
  if (count != id.dwStreamNameSize) return close_out(stream, writer);
  data_buf_->size(whole);
  return stream.write_data(*data_buf_, writer) ? done : failed;
}

// False where the media side failed. A source that fails or runs dry leaves the stream short.
template <class Source>
bool NT_Content_Writer::copy_data(Source& source, unsigned long long size, NT_Stream_Base& stream,
                                  IWriter& writer) {
  while (size != 0) {
    const auto wanted =
        static_cast<unsigned int>(std::min<unsigned long long>(size, data_buf_->capacity()));
    if (!source.read(*data_buf_, wanted)) {
      corrupt_attributes_ = windows_error_attributes(source.last_error());
      return true;
    }
    if (data_buf_->size() == 0) return true;
    if (!stream.write_data(*data_buf_, writer)) return false;
    size -= data_buf_->size();
  }
  return true;
}

int NT_Content_Writer::end_stream(NT_Stream_Base& stream, IWriter& writer) {
  if (!stream.end_stream(writer)) return failed;
  ctx_->add_length(stream.written_size());
  if (!stream.checksummed()) return done;
  return write_csum_stream(*ctx_, hdr_buf_, stream.checksum(), writer) ? done : failed;
}

int NT_Content_Writer::close_out(NT_Stream_Base& stream, IWriter& writer) {
  corrupt_offset_ = stream.current_size();
  if (corrupt_attributes_ == 0) corrupt_attributes_ = corrupt_length_change;
  return fill_stream(*ctx_, stream, *data_buf_, writer) ? content_corrupt : failed;
}

}  // namespace MTF
