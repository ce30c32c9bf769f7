#include "mtf/writer/dir_blk_writer_callback.h"

#include <ace/Log_Msg.h>

#include <cerrno>

#include "mtf/writer/callback_block.h"
#include "mtf/writer/stat_stream.h"
#include "oxbase/path.h"
#include "services/assertion.h"

namespace MTF {

Dir_Blk_Writer_Callback::Dir_Blk_Writer_Callback(Ref_Ptr<IBackup_Callback> callback,
                                                 Ref_Ptr<Event_Handler> handler)
    : Dir_Blk_Writer(handler), callback_(callback) {}

bool Dir_Blk_Writer_Callback::init(const Backup_Option* opt, Backup_Context* ctx,
                                   Ref_Ptr<Buffer> buf, IMBC_Writer* mbc_writer,
                                   Catalog_Writer* catalog) {
  if (!DBLK_Writer::init(opt, ctx, buf, mbc_writer, catalog) || !make_buffers()) return false;
  MTF_ASSERT_NOT_NULL(callback_.get(), false);
  separator_ = callback_->separator();
  return true;
}

bool Dir_Blk_Writer_Callback::set_dir_blk(Dir_Blk& blk) {
  if (!Dir_Blk_Writer::set_dir_blk(blk)) return false;
  oxbase::Path_T<char> path(separator_, false);
  path /= ctx_->cur_vol;
  path /= ctx_->cur_dir;
  stat_ = Callback_Stat();
  errno = 0;  // the host may leave it alone
  if (!callback_->lstat(path.str().c_str(), stat_)) {
    ACE_ERROR_RETURN((LM_WARNING, ACE_TEXT("Failed to lstat dir, path='%s'\n"), path.str().c_str()),
                     false);
  }
  dir_size_ = space_of(stat_);
  set_size_and_dates(blk, stat_);
  return true;
}

bool Dir_Blk_Writer_Callback::open_dir() {
  return true;
}

bool Dir_Blk_Writer_Callback::write_content(IWriter& writer) {
  return write_stat_stream(writer);
}

bool Dir_Blk_Writer_Callback::write_stat_stream(IWriter& writer) {
  return write_callback_stat(*ctx_, buf_, stat_, writer);
}

}  // namespace MTF
