#include "mtf/writer/dir_blk_writer_win.h"

#include <ace/Log_Msg.h>

#include "mtf/writer/wide_path.h"
#include "oxbase/system.h"
#include "services/file_path.h"

namespace MTF {
namespace {

constexpr unsigned int record_buffer_size = 0x10000;

}  // namespace

Dir_Blk_Writer_Win::Dir_Blk_Writer_Win(Ref_Ptr<Event_Handler> evt_handler,
                                       std::unique_ptr<platform::Record_Source> source)
    : Dir_Blk_Writer(evt_handler), content_writer_(evt_handler), reader_(std::move(source)) {
  wide_path_.reserve(usual_path_size);
}

bool Dir_Blk_Writer_Win::init(const Backup_Option* opt, Backup_Context* ctx, Ref_Ptr<Buffer> buf,
                              IMBC_Writer* mbc_writer, Catalog_Writer* catalog) {
  return DBLK_Writer::init(opt, ctx, buf, mbc_writer, catalog) && make_buffers() &&
         data_buffer_.expand(record_buffer_size) &&
         content_writer_.init(opt, ctx, buf, &data_buffer_, true);
}

bool Dir_Blk_Writer_Win::set_dir_blk(Dir_Blk& blk) {
  if (!Dir_Blk_Writer::set_dir_blk(blk)) return false;
  oxbase::Path_T<char> path('\\', false);
  if (!MTF_FS::replace_volume(ctx_->cur_vol, ctx_->cur_dir, ctx_->shadow_vol, path)) return false;
  to_wide_path(path.str(), wide_path_);
  WIN32_FILE_ATTRIBUTE_DATA data;
  if (!platform::enter_directory(wide_path_.c_str(), data) &&
      !query_attributes(wide_path_, data, last_error_)) {
    return false;
  }
  dir_size_ = 0;
  set_dates(blk, data);
  blk.dirb_attributes(blk.dirb_attributes() | block_attributes(data.dwFileAttributes));
  return true;
}

bool Dir_Blk_Writer_Win::open_dir() {
  if (!opt_->backup_read) return true;
  wide_path_ += L'\\';  // names a directory
  const bool opened = reader_.open(wide_path_);
  wide_path_.pop_back();
  return opened;
}

// A directory whose records are damaged or unknown counts as written.
bool Dir_Blk_Writer_Win::write_content(IWriter& writer) {
  if (!opt_->backup_read) return true;
  const int result = content_writer_.write(reader_, writer);
  if (result != -1) return true;
  ctx_->write_failed(writer);
  ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to write dir content, path '%s' rc=%d\n"),
                    oxbase::UTF16_String(wide_path_).c_utf8(), result),
                   false);
}

}  // namespace MTF
