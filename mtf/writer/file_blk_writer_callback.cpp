#include "mtf/writer/file_blk_writer_callback.h"

#include <ace/Log_Msg.h>

#include <cerrno>

#include "mtf/writer/callback_block.h"
#include "mtf/writer/stat_stream.h"
#include "services/assertion.h"

namespace MTF {

File_Blk_Writer_Callback::File_Blk_Writer_Callback(Ref_Ptr<Event_Handler> handler,
                                                   Ref_Ptr<IBackup_Callback> callback)
    : File_Blk_Writer(handler), data_stream_(handler), callback_(callback) {}

bool File_Blk_Writer_Callback::init(const Backup_Option* opt, Backup_Context* ctx,
                                    Ref_Ptr<Buffer> buf, IMBC_Writer* mbc_writer,
                                    Catalog_Writer* catalog) {
  if (!DBLK_Writer::init(opt, ctx, buf, mbc_writer, catalog) || !make_buffers()) return false;
  data_stream_.set_channel(ctx->channel);
  data_stream_.set_buffer(buf);
  data_stream_.set_compression_threads(opt->compression_threads);
  MTF_ASSERT_NOT_NULL(callback_.get(), false);
  reader_ = callback_->create_file_reader();
  MTF_ASSERT_NOT_NULL(reader_.get(), false);
  return true;
}

bool File_Blk_Writer_Callback::set_file_blk(File_Blk& blk) {
  if (!File_Blk_Writer::set_file_blk(blk)) return false;
  stat_ = Callback_Stat();
  errno = 0;  // the host may leave it alone
  if (!callback_->lstat(path_.str().c_str(), stat_)) {
    ACE_ERROR_RETURN(
        (LM_WARNING, ACE_TEXT("Failed to lstat file, path='%s'\n"), path_.str().c_str()), false);
  }
  file_space_ = space_of(stat_);
  set_size_and_dates(blk, stat_);
  return true;
}

int File_Blk_Writer_Callback::open_file() {
  if (reader_->is_open() && reader_->close() == -1) {
    ACE_ERROR_RETURN(
        (LM_ERROR, ACE_TEXT("Failed to close file reader on File_Blk_Writer_Callback\n")), -1);
  }
  errno = 0;  // the host may leave it alone
  return reader_->open(path_.str().c_str());
}

bool File_Blk_Writer_Callback::write_file_blk(File_Blk& blk, IWriter& writer) {
  return reader_->handle_file_blk(blk, file_space_, stat_) &&
         File_Blk_Writer::write_file_blk(blk, writer);
}

int File_Blk_Writer_Callback::write_content(File_Blk& blk, IWriter& writer) {
  const int result = write_data_stream(
      data_stream_, blk.hdr().displayable_size(), [this] { return read(); }, writer);
  if (result != 0) return result;
  if (data_stream_.checksummed() && !write_checksum_stream(data_stream_.checksum(), writer)) {
    return -1;
  }
  return write_stat_stream(writer) ? 0 : -1;
}

bool File_Blk_Writer_Callback::read() {
  data_buffer_.size(0);
  const int result = reader_->read(data_buffer_);
  if (result == -1) return false;
  if (data_buffer_.size() > data_buffer_.capacity()) {
    ACE_ERROR_RETURN(
        (LM_ERROR, ACE_TEXT("File reader gave %u bytes where there is room for %u, path='%s'\n"),
         data_buffer_.size(), data_buffer_.capacity(), path_.str().c_str()),
        false);
  }
  if (result == 1) data_buffer_.size(0);
  return true;
}

bool File_Blk_Writer_Callback::write_stat_stream(IWriter& writer) {
  if (!write_callback_stat(*ctx_, buf_, stat_, writer)) return false;
  ++stream_count_;
  return true;
}

}  // namespace MTF
