#include "mtf/writer/pdat_blk_writer.h"

#include <ace/Log_Msg.h>
#include <ace/OS_NS_time.h>

#include "mtf/writer/catalog_writer.h"
#include "mtf/writer/imbc_writer.h"
#include "platform/file.h"

namespace MTF {
namespace {

constexpr unsigned int data_chunk_size = 0x100000;
constexpr int poll_interval = 100;  // milliseconds
constexpr int interrupted = 4;
constexpr int broken_pipe = 109;  // Windows' end of a pipe

}  // namespace

PDat_Blk_Writer::PDat_Blk_Writer(ACE_HANDLE handle, Ref_Ptr<Event_Handler> evt_handler)
    : handle_(handle),
      evt_handler_(evt_handler),
      block_buffer_(8),
      data_buffer_(8),
      data_stream_(evt_handler) {}

bool PDat_Blk_Writer::init(const Backup_Option* opt, Backup_Context* ctx, Ref_Ptr<Buffer> buf,
                           IMBC_Writer* mbc_writer, Catalog_Writer* catalog) {
  if (!DBLK_Writer::init(opt, ctx, buf, mbc_writer, catalog) ||
      !block_buffer_.expand(DBLK::image_size)) {
    return false;
  }
  data_stream_.set_buffer(buf);
  return true;
}

bool PDat_Blk_Writer::reset(char* buf, unsigned int size) {
  cat_blk_.set_buffer(buf, size, false);
  const unsigned int type = cat_blk_.hdr().type();
  if (type != block_pdat) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Invalid cat type in PDat_Blk_Writer,type: %x\n"), type),
                     false);
  }
  if (!block_name(cat_blk_, name_)) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Empty pdat name\n")), false);
  }
  return true;
}

int PDat_Blk_Writer::write(IWriter& writer) {
  if (!write_spad_stream(*opt_, *ctx_, buf_, writer, true)) return -1;
  PDat_Blk blk(block_buffer_, true);
  if (!set_pdat_blk(blk)) return -1;
  const unsigned long long written = blk.write(writer);
  if (written == IWriter::failed) {
    ctx_->write_failed(writer);
    return -1;
  }
  ctx_->add_length(written);
  if (!write_data(writer)) return -1;
  return mbc_writer_->add_pdat_blk(blk, name_) && catalog_->add_pdat_blk(blk, name_) ? 0 : -1;
}

bool PDat_Blk_Writer::set_pdat_blk(PDat_Blk& blk) {
  blk.hdr().format_logical_address(ctx_->fla);
  blk.hdr().control_block_id(++ctx_->control_block_id);
  blk.backup_date(ACE_OS::time());
  blk.directory_id(ctx_->dir_id);
  blk.file_id(++ctx_->file_id);
  if (!blk.file_name(name_)) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to set pdat name\n")), false);
  }
  if (opt_->compression_method != 0) blk.hdr().attributes(attr_compression);
  return true;
}

// Short reads fill one buffer, so that the chunks don't depend on the pace of the data.
bool PDat_Blk_Writer::write_data(IWriter& writer) {
  if (!data_buffer_.expand(data_chunk_size)) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to expand, size=%u\n"), data_chunk_size), false);
  }
  data_buffer_.size(0);
  for (;;) {
    if (!wait_for_data()) return false;
    const unsigned int held = data_buffer_.size();
    const ssize_t n = ACE_OS::read(handle_, data_buffer_.data() + held, data_chunk_size - held);
    const int error = n < 0 ? ACE_OS::last_error() : 0;
    if (error == interrupted) continue;
    if (n == 0 || error == broken_pipe) return write_chunk(true, writer);
    if (n < 0) {
      ACE_ERROR_RETURN(
          (LM_ERROR, ACE_TEXT("Failed to read pre-action data, errno=%d, %m\n"), error), false);
    }
    data_buffer_.size(held + static_cast<unsigned int>(n));
    if (data_buffer_.size() < data_chunk_size) continue;
    if (!write_chunk(false, writer)) return false;
    data_buffer_.size(0);
  }
}

// A program that is silent at the other end of a pipe must not hold up a cancel.
bool PDat_Blk_Writer::wait_for_data() {
  while (!platform::wait_readable(handle_, poll_interval)) {
    if (evt_handler_.get() != nullptr && evt_handler_->is_canceling()) return false;
  }
  return true;
}

bool PDat_Blk_Writer::write_chunk(bool is_end, IWriter& writer) {
  if (!write_to_stream_align(*ctx_, writer)) return false;
  data_stream_.reset_stream(data_buffer_.size(), is_end, opt_->compression_method,
                            opt_->compression_level);
  if (!data_stream_.write_hdr(writer) || !data_stream_.write_data(data_buffer_, writer) ||
      !data_stream_.end_stream(writer)) {
    return ctx_->write_failed(writer);
  }
  ctx_->add_length(data_stream_.written_size());
  return write_csum_stream(*ctx_, buf_, data_stream_.checksum(), writer) ||
         ctx_->write_failed(writer);
}

}  // namespace MTF
