#include "mtf/writer/dir_blk_writer.h"

#include <ace/Log_Msg.h>
#include <ace/OS_NS_time.h>

#include <algorithm>

#include "mtf/common/pnam_stream.h"
#include "mtf/writer/catalog_writer.h"
#include "mtf/writer/imbc_writer.h"
#include "services/file_path.h"
#include "services/json_spirit.h"

namespace MTF {

Dir_Blk_Writer::Dir_Blk_Writer(Ref_Ptr<Event_Handler> evt_handler)
    : block_buffer_(8), data_buffer_(8), evt_handler_(evt_handler) {}

bool Dir_Blk_Writer::make_buffers() {
  return block_buffer_.expand(DBLK::image_size);
}

bool Dir_Blk_Writer::reset(char* buf, unsigned int size) {
  cat_blk_.set_buffer(buf, size, false);
  const unsigned int type = cat_blk_.hdr().type();
  if (type != block_dirb) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Invalid cat type in Dir_Blk_Writer, %x\n"), type), false);
  }
  if (!block_name(cat_blk_, dir_name_)) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Empty dir name\n")), false);
  }
  printable_dir_name_ = dir_name_;
  std::replace(printable_dir_name_.begin(), printable_dir_name_.end(), '\0', '\\');
  ctx_->cur_dir = printable_dir_name_;
  ctx_->dir_missing = false;
  return true;
}

int Dir_Blk_Writer::write(IWriter& writer) {
  if (!write_spad_stream(*opt_, *ctx_, buf_, writer, true)) return -1;
  Dir_Blk blk(block_buffer_, true);
  if (!set_dir_blk(blk) || !open_dir()) return skip();
  if (!write_dir_blk(blk, writer) || !write_name_stream(blk, writer)) return -1;
  if (!write_content(writer)) return -1;
  if (!mbc_writer_->add_dir_blk(blk, dir_name_) ||
      !catalog_->add_dir_blk(blk, dir_size_, dir_name_)) {
    ctx_->catalog_failed();
    return -1;
  }
  return 0;
}

int Dir_Blk_Writer::skip() {
  const int error = ACE_OS::last_error();
  ctx_->dir_missing = true;
  ctx_->dir_error = error;
  if (evt_handler_.get() != nullptr) {
    ++evt_handler_->skipped_dirs;
    oxbase::Path_T<char> path('\\', false);
    MTF_FS::replace_volume(ctx_->cur_vol, ctx_->cur_dir, ctx_->shadow_vol, path);
    evt_handler_->handle_event(
        event_skipped,
        json_spirit::Document{
            {"type", "dir"}, {"name", path.str()}, {"errno", error}, {"message", "Open failed"}});
  }
  return 1;
}

bool Dir_Blk_Writer::set_dir_blk(Dir_Blk& blk) {
  blk.hdr().format_logical_address(ctx_->fla);
  blk.hdr().control_block_id(++ctx_->control_block_id);
  blk.backup_date(ACE_OS::time());
  blk.directory_id(++ctx_->dir_id);
  unsigned int attributes = 0;
  if (!blk.directory_name(dir_name_)) attributes |= attr_name_in_stream;
  if (opt_->compression_method != 0) attributes |= attr_compression;
  blk.hdr().attributes(attributes);
  return true;
}

bool Dir_Blk_Writer::write_dir_blk(Dir_Blk& blk, IWriter& writer) {
  const unsigned long long written = blk.write(writer);
  if (written == IWriter::failed) return ctx_->write_failed(writer);
  ctx_->add_length(written);
  return true;
}

bool Dir_Blk_Writer::write_name_stream(const Dir_Blk& blk, IWriter& writer) {
  if ((blk.hdr().attributes() & attr_name_in_stream) == 0) return true;
  Path_Name_Stream stream(buf_);
  if (!stream.name(dir_name_)) return false;
  return write_small_stream(*ctx_, stream, writer) || ctx_->write_failed(writer);
}

}  // namespace MTF
