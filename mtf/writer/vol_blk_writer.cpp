#include "mtf/writer/vol_blk_writer.h"

#include <ace/Log_Msg.h>
#include <ace/OS_NS_time.h>

#include <algorithm>

#include "mtf/writer/catalog_writer.h"
#include "mtf/writer/imbc_writer.h"
#include "oxbase/system.h"
#include "services/settings.h"

namespace MTF {
namespace {

constexpr unsigned int default_fs_block_size = 4096;

}  // namespace

bool Vol_Blk_Writer::reset(char* buf, unsigned int size) {
  cat_blk_.set_buffer(buf, size, false);
  const unsigned int type = cat_blk_.hdr().type();
  if (type != block_volb) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Invalid cat type in Vol_Blk_Writer, %x\n"), type), false);
  }
  if (!block_name(cat_blk_, device_name_)) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Empty vol device name\n")), false);
  }
  printable_device_name_ = device_name_;
  std::replace(printable_device_name_.begin(), printable_device_name_.end(), '\0', '\\');
  ctx_->set_cur_vol(printable_device_name_);
  oxbase::FS_Stat stat;
  const bool known = oxbase::get_disk_free_space(printable_device_name_.c_str(), stat);
  ctx_->fs_block_size = known ? stat.block_size : default_fs_block_size;
  return true;
}

int Vol_Blk_Writer::write(IWriter& writer) {
  if (!write_spad_stream(*opt_, *ctx_, buf_, writer, true)) return -1;
  Vol_Blk blk(*buf_, true);
  if (!set_vol_blk(blk)) return -1;
  const unsigned long long written = blk.write(writer);
  if (written == IWriter::failed) {
    ctx_->write_failed(writer);
    return -1;
  }
  ctx_->add_length(written);
  return mbc_writer_->add_vol_blk(blk) && catalog_->add_vol_blk(blk) ? 0 : -1;
}

bool Vol_Blk_Writer::set_vol_blk(Vol_Blk& blk) {
  blk.hdr().format_logical_address(ctx_->fla);
  blk.hdr().control_block_id(++ctx_->control_block_id);
  if (!blk.device_name(device_name_)) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to set vol device\n")), false);
  }
  if (opt_->compression_method != 0) blk.hdr().attributes(attr_compression);
  blk.media_write_date(ACE_OS::time());
  // The block is written even if the machine's name isn't known.
  blk.machine_name(Host_Manager::instance()->name());
  blk.volb_attributes(blk.volb_attributes() | volb_device_is_drive);
  return true;
}

}  // namespace MTF
