#include "mtf/writer/file_blk_writer_win.h"

#include <cerrno>

#include "mtf/writer/set_file_blk_win.h"
#include "mtf/writer/wide_path.h"
#include "services/file_path.h"

namespace MTF {

File_Blk_Writer_Win::File_Blk_Writer_Win(Ref_Ptr<Event_Handler> evt_handler,
                                         std::unique_ptr<platform::Record_Source> source)
    : File_Blk_Writer(evt_handler), content_writer_(evt_handler), reader_(std::move(source)) {
  wide_path_.reserve(usual_path_size);
}

bool File_Blk_Writer_Win::init(const Backup_Option* opt, Backup_Context* ctx, Ref_Ptr<Buffer> buf,
                               IMBC_Writer* mbc_writer, Catalog_Writer* catalog) {
  return DBLK_Writer::init(opt, ctx, buf, mbc_writer, catalog) && make_buffers() &&
         content_writer_.init(opt, ctx, buf, &data_buffer_, false);
}

bool File_Blk_Writer_Win::set_file_blk(File_Blk& blk) {
  if (!File_Blk_Writer::set_file_blk(blk)) return false;
  opened_ = ctx_->shadow_vol.empty() ? reader_.open(path_.str()) : open_shadow();
  open_error_ = errno;
  if (opened_ && reader_.facts() != nullptr) {
    set_file_blk_win(blk, *reader_.facts(), file_space_, *ctx_);
    return true;
  }
  return set_file_blk_win(blk, wide_path_, file_space_, last_error_, ctx_, file_name_) > 0;
}

bool File_Blk_Writer_Win::open_shadow() {
  oxbase::Path_T<char> path('\\', false);
  return MTF_FS::replace_volume(ctx_->cur_vol, ctx_->cur_dir, file_name_, ctx_->shadow_vol, path) &&
         reader_.open(path.str());
}

int File_Blk_Writer_Win::open_file() {
  errno = open_error_;
  return opened_ ? 0 : 1;
}

int File_Blk_Writer_Win::write_content(File_Blk&, IWriter& writer) {
  const int result = content_writer_.write(reader_, writer);
  if (result == content_corrupt) {
    corrupt_offset_ = content_writer_.corrupt_offset();
    corrupt_attributes_ = content_writer_.corrupt_attributes();
    stream_count_ = static_cast<unsigned short>(stream_count_ + content_writer_.stream_count());
  }
  if (result == -1) ctx_->write_failed(writer);
  return result;
}

}  // namespace MTF
