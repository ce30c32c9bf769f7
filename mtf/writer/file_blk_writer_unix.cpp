#include "mtf/writer/file_blk_writer_unix.h"

#include <cerrno>

#include "mtf/writer/set_file_blk_win.h"
#include "mtf/writer/stat_stream.h"

namespace MTF {
namespace {

constexpr unsigned long long source_buffer_size = 0x20000;
constexpr int read_flags = 0x2000080;  // with backup semantics

unsigned int read_error_attributes(int error) {
  switch (error) {
    case EIO:
      return corrupt_unreadable;
    case EPERM:
      return corrupt_in_use;
    default:
      return corrupt_length_change;
  }
}

}  // namespace

File_Blk_Writer_Unix::File_Blk_Writer_Unix(Ref_Ptr<Event_Handler> evt_handler)
    : File_Blk_Writer(evt_handler),
      data_stream_(evt_handler),
      sparse_stream_(evt_handler),
      file_(source_buffer_size) {}

bool File_Blk_Writer_Unix::init(const Backup_Option* opt, Backup_Context* ctx, Ref_Ptr<Buffer> buf,
                                IMBC_Writer* mbc_writer, Catalog_Writer* catalog) {
  if (!DBLK_Writer::init(opt, ctx, buf, mbc_writer, catalog) || !make_buffers()) return false;
  data_stream_.set_channel(ctx->channel);
  data_stream_.set_buffer(buf);
  data_stream_.set_compression_threads(opt->compression_threads);
  data_stream_.set_ready_files(ctx->ready_files);
  sparse_stream_.set_channel(ctx->channel);
  sparse_stream_.set_buffer(buf);
  return true;
}

bool File_Blk_Writer_Unix::set_file_blk(File_Blk& blk) {
  if (!File_Blk_Writer::set_file_blk(blk)) return false;
  open();
  if (opened_ && ctx_->shadow_vol.empty()) {
    set_file_blk_win(blk, facts(), file_space_, *ctx_);
  } else if (set_file_blk_win(blk, wide_path_, file_space_, last_error_, ctx_, file_name_) <= 0) {
    return false;
  }
  sparse_stream_.reset_offset();
  return true;
}

void File_Blk_Writer_Unix::open() {
  ready_ = ctx_->ready_files != nullptr ? ctx_->ready_files->find(path_.str()) : nullptr;
  opened_ = ready_ != nullptr || file_.open(path_.str(), read_flags, MTF_FS::share_all) == 0;
  open_error_ = errno;
}

const platform::File_Facts& File_Blk_Writer_Unix::facts() const {
  return ready_ != nullptr ? ready_->facts : file_.facts();
}

int File_Blk_Writer_Unix::open_file() {
  errno = open_error_;
  return opened_ ? 0 : 1;
}

int File_Blk_Writer_Unix::write_content(File_Blk& blk, IWriter& writer) {
  const unsigned long long size = blk.hdr().displayable_size();
  if (size != 0) {
    const int result = write_data(size, writer);
    if (result != 0) return result;
  }
  return write_stat_stream(writer) ? 0 : -1;
}

int File_Blk_Writer_Unix::write_data(unsigned long long size, IWriter& writer) {
  const int result = write_data_stream(
      data_stream_, size, [this] { return read(); }, writer);
  if (result == -1) ctx_->write_failed(writer);
  if (result != 0 || !data_stream_.checksummed()) return result;
  return write_checksum_stream(data_stream_.checksum(), writer) ? 0 : -1;
}

// A file that fails to read is closed out like one that ends early.
bool File_Blk_Writer_Unix::read() {
  if (ready_ != nullptr) {
    data_buffer_.copy(ready_->content.data(), ready_->content.size());
    data_buffer_.size(ready_->content.size());
    return true;
  }
  const std::streamsize n = file_.sgetn(data_buffer_.data(), data_buffer_.capacity());
  if (n < 0) corrupt_attributes_ = read_error_attributes(file_.last_error());
  data_buffer_.size(n > 0 ? static_cast<unsigned int>(n) : 0);
  return true;
}

bool File_Blk_Writer_Unix::write_checksum_stream(unsigned int checksum, IWriter& writer) {
  return File_Blk_Writer::write_checksum_stream(checksum, writer) || ctx_->write_failed(writer);
}

bool File_Blk_Writer_Unix::write_stat_stream(IWriter& writer) {
  Unix_Stat_Extent_Stream stream(buf_, &ctx_->id_mapper);
  if (!stream.set_stat(facts().stat)) return false;
  if (!write_small_stream(*ctx_, stream, writer)) return ctx_->write_failed(writer);
  ++stream_count_;
  return true;
}

}  // namespace MTF
