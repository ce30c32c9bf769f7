#include "mtf/writer/data_set.h"

#include <ace/Log_Msg.h>

#include <algorithm>

#include "mtf/common/end_blks.h"
#include "mtf/common/round_up.h"
#include "mtf/writer/catalog_writer.h"
#include "mtf/writer/filemark.h"
#include "mtf/writer/imbc_writer.h"
#include "mtf/writer/sset_blk_writer.h"
#include "oxbase/path.h"
#include "platform/native_path.h"
#include "services/assertion.h"
#include "services/text.h"

namespace MTF {
namespace {

std::string words(unsigned int type) {
  switch (type) {
    case block_slnk:
      return "symbolic link";
    case block_hlnk:
      return "further name of a file";
    case block_devb:
      return "device";
    default:
      return fdd_entry_type_string(type);
  }
}

// Names what the media doesn't get.
void tell_left_out(const Backup_Context& ctx, const Cat_Blk& block) {
  std::string name;
  if (!block_name(block, name)) return;
  oxbase::Path_T<char> full('\\', false);
  full /= ctx.cur_vol;
  full /= ctx.cur_dir;
  full /= name;
  ACE_ERROR((LM_WARNING, ACE_TEXT("Left out %C '%C'\n"), words(block.hdr().type()).c_str(),
             platform::display_path(full.str()).c_str()));
}

}  // namespace

Data_Set::Data_Set(const Data_Set_Conf& conf, ISrc_Lister& lister, Event_Handler* evt_handler)
    : conf_(conf), lister_(lister), evt_handler_(evt_handler) {}

bool Data_Set::register_dblk_writer(Ref_Ptr<DBLK_Writer> writer) {
  writers_[writer->type()] = writer;
  return true;
}

bool Data_Set::init(const Backup_Option* opt, Backup_Context* ctx, IMBC_Writer* writer,
                    Catalog_Writer* cat) {
  MTF_ASSERT_NOT_NULL(opt, false);
  MTF_ASSERT_NOT_NULL(ctx, false);
  MTF_ASSERT_NOT_NULL(writer, false);
  MTF_ASSERT_NOT_NULL(cat, false);
  opt_ = opt;
  ctx_ = ctx;
  mbc_writer_ = writer;
  catalog_ = cat;
  buf_ = make_buffer();
  MTF_ASSERT_NOT_NULL(buf_.get(), false);
  // Blocks are built in the buffer without a look at its size.
  if (!buf_->expand(DBLK::image_size)) return false;
  return std::all_of(writers_.begin(), writers_.end(), [this](const auto& entry) {
    return entry.second->init(opt_, ctx_, buf_, mbc_writer_, catalog_);
  });
}

bool Data_Set::write(IWriter& writer) {
  if (mbc_writer_ == nullptr || opt_ == nullptr || ctx_ == nullptr) return false;
  ctx_->dir_id = 0;
  ctx_->file_id = 0;
  ctx_->control_block_id = 0;
  if (!write_sset(writer)) return ctx_->write_failed(writer);
  if (!write_src(writer)) return false;
  if (!write_eset(writer)) return ctx_->write_failed(writer);
  return true;
}

bool Data_Set::write_sset(IWriter& writer) {
  const auto found = writers_.find(block_sset);
  if (found == writers_.end()) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to find SSET blk writer\n")), false);
  }
  auto& sset = static_cast<SSet_Blk_Writer&>(*found->second);
  if (sset.write(writer) == -1) return false;
  date_ = static_cast<unsigned long long>(sset.date());
  sset_off_ = sset.sset_off();
  sset_fla_ = sset.sset_fla();
  return true;
}

bool Data_Set::write_src(IWriter& writer) {
  Cat_Blk block;
  while (lister_.next(block)) {
    const unsigned int type = block.hdr().type();
    const Ref_Ptr<DBLK_Writer>& dblk_writer = get_dblk_writer(block);
    if (dblk_writer.get() == nullptr) {
      ACE_ERROR((LM_WARNING, ACE_TEXT("Failed to get dblk writer type=%x\n"), type));
      tell_left_out(*ctx_, block);
      continue;
    }
    const int result = dblk_writer->write(writer);
    if (evt_handler_ != nullptr && evt_handler_->is_canceling()) return false;
    if (result == -1) {
      ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to write '%s' element\n"),
                        fdd_entry_type_string(type).c_str()),
                       false);
    }
  }
  return true;
}

const Ref_Ptr<DBLK_Writer>& Data_Set::get_dblk_writer(Cat_Blk& block) {
  const auto found = writers_.find(block.hdr().type());
  if (found == writers_.end()) return null_ref<DBLK_Writer>;
  if (!found->second->reset(block.data(), block.hdr().length())) return null_ref<DBLK_Writer>;
  return found->second;
}

bool Data_Set::fill_eset_blk(ESet_Blk& blk) {
  blk.hdr().format_logical_address(ctx_->fla);
  blk.eset_attributes(eset_normal_backup |
                      (conf_.compression_method() != 0 ? eset_compressed : 0U));
  blk.data_set_number(ctx_->data_set_number);
  blk.media_write_date(static_cast<long long>(date_));
  blk.corrupt_file_count(
      static_cast<unsigned int>(std::min(ctx_->corrupt_file_count, 0xFFFFFFFFULL)));
  const unsigned int size =
      round_up(unsigned{blk.hdr().offset_to_first_event()}, opt_->physical_block_size);
  MTF_ASSERT_TRUE(size <= 0xFFFF, false);
  if (!buf_->expand(size)) {
    ACE_ERROR_RETURN((LM_WARNING, ACE_TEXT("Failed to expand buffer\n")), false);
  }
  // Behind the block's own image the buffer holds remains of streams that were built in it.
  std::fill(buf_->data() + DBLK::image_size, buf_->data() + std::max(size, DBLK::image_size), '\0');
  blk.hdr().offset_to_first_event(static_cast<unsigned short>(size));
  return true;
}

bool Data_Set::write_eset(IWriter& writer) {
  if (!write_spad_stream(*opt_, *ctx_, buf_, writer, false)) return false;
  if (!write_filemark(*ctx_, writer)) return false;
  ctx_->last_eset_pba = ctx_->pba;
  ESet_Blk blk(*buf_, true);
  if (!fill_eset_blk(blk)) return false;
  if (!mbc_writer_->add_eset_blk(blk) || !catalog_->add_eset_blk(blk)) return false;
  const unsigned long long written = blk.write(writer);
  if (written == IWriter::failed) return false;
  ctx_->add_length(written);
  if (!mbc_writer_->write(writer)) return false;
  if (!write_spad_stream(*opt_, *ctx_, buf_, writer, false)) return false;
  return write_filemark(*ctx_, writer);
}

}  // namespace MTF
