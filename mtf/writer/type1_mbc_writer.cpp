#include "mtf/writer/type1_mbc_writer.h"

#include "mtf/writer/dblk_writer.h"
#include "services/assertion.h"
#include "services/working_path.h"

namespace MTF {

Type1_MBC_Writer::Type1_MBC_Writer(const Backup_Option* opt, Backup_Context* ctx)
    : opt_(opt), ctx_(ctx), tfdd_(opt), tsmp_(opt), eset_copy_(8) {}

bool Type1_MBC_Writer::open() {
  std::string path;
  if (!tfdd_path(opt_->job_tmp_dir, opt_->option_path, opt_->minor_resource_id, ctx_->channel,
                 path) ||
      !tfdd_.open(path)) {
    return false;
  }
  return tsmp_path(opt_->job_tmp_dir, opt_->option_path, opt_->minor_resource_id, ctx_->channel,
                   path) &&
         tsmp_.open(path);
}

bool Type1_MBC_Writer::add_tape_blk(const Tape_Blk& blk) {
  return tfdd_.add_tape_blk(blk) && tsmp_.add_tape_blk(blk);
}

bool Type1_MBC_Writer::add_sset_blk(const SSet_Blk& blk) {
  return tfdd_.add_sset_blk(blk) && tsmp_.add_sset_blk(blk);
}

bool Type1_MBC_Writer::add_vol_blk(const Vol_Blk& blk) {
  return tfdd_.add_vol_blk(blk) && tsmp_.add_vol_blk(blk);
}

bool Type1_MBC_Writer::add_dir_blk(const Dir_Blk& blk, const std::string& name) {
  return tfdd_.add_dir_blk(blk, name) && tsmp_.add_dir_blk(blk);
}

bool Type1_MBC_Writer::add_file_blk(const File_Blk& blk, const std::string& name) {
  return tfdd_.add_file_blk(blk, name) && tsmp_.add_file_blk(blk);
}

bool Type1_MBC_Writer::add_slnk_blk(const SLnk_Blk& blk, const std::string& name) {
  return tfdd_.add_slnk_blk(blk, name) && tsmp_.add_slnk_blk(blk);
}

bool Type1_MBC_Writer::add_hlnk_blk(const HLnk_Blk& blk, const std::string& name) {
  return tfdd_.add_hlnk_blk(blk, name) && tsmp_.add_hlnk_blk(blk);
}

bool Type1_MBC_Writer::add_devb_blk(const Devb_Blk& blk, const std::string& name) {
  return tfdd_.add_devb_blk(blk, name) && tsmp_.add_devb_blk(blk);
}

bool Type1_MBC_Writer::add_pdat_blk(const PDat_Blk& blk, const std::string& name) {
  return tfdd_.add_pdat_blk(blk, name) && tsmp_.add_pdat_blk(blk);
}

bool Type1_MBC_Writer::add_cfil_blk(const CFil_Blk& blk) {
  return tfdd_.add_cfil_blk(blk) && tsmp_.add_cfil_blk(blk);
}

bool Type1_MBC_Writer::add_eset_blk(const ESet_Blk& blk) {
  if (!tfdd_.end() || !tsmp_.add_eset_blk(blk)) return false;
  const unsigned short size = blk.hdr().offset_to_first_event();
  if (!eset_copy_.expand(size)) return false;
  eset_copy_.copy(blk.image(), size);
  return true;
}

bool Type1_MBC_Writer::written(long long count) {
  if (count == -1) return false;
  ctx_->add_length(static_cast<unsigned long long>(count));
  return true;
}

bool Type1_MBC_Writer::write(IWriter& writer) {
  ESet_Blk eset(eset_copy_, false);
  if (!write_pba_align(*opt_, *ctx_, writer)) return false;
  eset.fdd_pba(ctx_->pba);
  tsmp_.set_fdd_pba(ctx_->pba);
  if (!written(tfdd_.write(writer))) return false;
  if (!write_pba_align(*opt_, *ctx_, writer)) return false;
  eset.sm_pba(ctx_->pba);
  if (!written(tsmp_.write(writer))) return false;
  const Ref_Ptr<Buffer> buf = make_buffer();
  MTF_ASSERT_NOT_NULL(buf.get(), false);
  if (!write_spad_stream(*opt_, *ctx_, buf, writer, false)) return false;
  return written(static_cast<long long>(eset.write(writer)));
}

}  // namespace MTF
