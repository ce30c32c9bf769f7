#include "mtf/writer/sset_blk_writer.h"

#include <ace/OS_NS_time.h>

#include <sstream>

#include "mtf/common/metadata_stream.h"
#include "mtf/writer/catalog_writer.h"
#include "mtf/writer/imbc_writer.h"

namespace MTF {

SSet_Blk_Writer::SSet_Blk_Writer(const Metadata& metadata, const Data_Set_Conf& conf)
    : metadata_(metadata), conf_(conf), block_buffer_(8) {}

bool SSet_Blk_Writer::reset(char*, unsigned int) {
  return false;
}

int SSet_Blk_Writer::write(IWriter& writer) {
  if (!block_buffer_.expand(DBLK::image_size)) return -1;
  SSet_Blk blk(block_buffer_, true);
  set_sset_blk(blk);
  if (!write_sset_blk(blk, writer) || !write_meta_stream(writer)) return -1;
  return mbc_writer_->add_sset_blk(blk) && catalog_->add_sset_blk(blk) ? 0 : -1;
}

bool SSet_Blk_Writer::set_sset_blk(SSet_Blk& blk) {
  blk.hdr().format_logical_address(ctx_->fla);
  blk.sset_attributes(conf_.backup_type);
  blk.software_major_version(conf_.software_major_version);
  blk.software_minor_version(conf_.software_minor_version);
  blk.data_set_number(++ctx_->data_set_number);
  blk.physical_block_address(ctx_->pba);
  blk.mtf_minor_version(conf_.mtf_minor_version);
  blk.media_catalog_version(conf_.media_catalog_version);
  blk.software_compression_algorithm(conf_.compression_method());
  date_ = ACE_OS::time();
  blk.media_write_date(date_);
  sset_fla_ = blk.hdr().format_logical_address();
  sset_off_ = (sset_fla_ - opt_->base_fla) * opt_->format_logical_block_size;
  unsigned int attributes = 0;
  if (opt_->media_based_catalog_type != 0) attributes |= attr_set_map_exists;
  if (opt_->compression_method != 0) {
    attributes |= attr_compression;
    blk.software_compression_algorithm(opt_->compression_method);
  }
  blk.hdr().attributes(attributes);
  return true;
}

bool SSet_Blk_Writer::write_sset_blk(SSet_Blk& blk, IWriter& writer) {
  const unsigned long long written = blk.write(writer);
  if (written == IWriter::failed) return false;
  ctx_->add_length(written);
  return true;
}

bool SSet_Blk_Writer::write_meta_stream(IWriter& writer) {
  std::stringstream text(std::ios::in | std::ios::out);
  if (!metadata_.to_s(text)) return false;
  const std::string data = text.str();
  Metadata_Stream stream(buf_);
  if (!stream.set_data(data.data(), static_cast<unsigned int>(data.size()))) return false;
  return write_small_stream(*ctx_, stream, writer) && catalog_->add_meta_stream(stream);
}

}  // namespace MTF
