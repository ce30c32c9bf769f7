#include "mtf/writer/media_header.h"

#include <ace/OS_NS_time.h>

#include "mtf/common/tape_blk.h"
#include "mtf/writer/catalog_writer.h"
#include "mtf/writer/dblk_writer.h"
#include "mtf/writer/filemark.h"
#include "mtf/writer/imbc_writer.h"
#include "services/assertion.h"

namespace MTF {
namespace {

constexpr unsigned char format_major_version = 1;

}  // namespace

bool Media_Header::write(IWriter& writer, IMBC_Writer& mbc_writer, Catalog_Writer& catalog) {
  Ref_Ptr<Buffer> buf = make_buffer();
  MTF_ASSERT_NOT_NULL(buf.get(), false);
  if (!buf->expand(DBLK::image_size)) return false;
  if (!write_tape_blk(*buf, writer, mbc_writer, catalog)) return false;
  if (!write_spad_stream(*opt_, *ctx_, buf, writer, false)) return false;
  return write_filemark(*ctx_, writer);
}

bool Media_Header::write_tape_blk(Buffer& buffer, IWriter& writer, IMBC_Writer& mbc_writer,
                                  Catalog_Writer& catalog) {
  MTF_ASSERT_TRUE(opt_->physical_block_size <= 0xFFFF, false);
  MTF_ASSERT_TRUE(opt_->format_logical_block_size <= 0xFFFF, false);
  Tape_Blk blk(buffer, true);
  set_tape_blk(blk);
  const unsigned long long written = blk.write(writer);
  if (written == IWriter::failed) return false;
  ctx_->add_length(written);
  return mbc_writer.add_tape_blk(blk) && catalog.add_tape_blk(blk);
}

void Media_Header::set_tape_blk(Tape_Blk& blk) {
  blk.hdr().format_logical_address(ctx_->fla);
  blk.tape_attributes(tape_soft_filemarks |
                      (opt_->media_description.empty() ? 0U : tape_has_description));
  blk.media_family_id(opt_->media_family_id);
  blk.media_based_catalog_type(opt_->media_based_catalog_type);
  blk.format_logical_block_size(static_cast<unsigned short>(opt_->format_logical_block_size));
  blk.soft_filemark_block_size(static_cast<unsigned short>(opt_->physical_block_size));
  blk.media_sequence_number(ctx_->seq);
  blk.media_date(ACE_OS::time());
  blk.mtf_major_version(format_major_version);
  unsigned int attributes = 0;
  if (ctx_->seq > 1) attributes |= attr_continuation;
  if (opt_->media_based_catalog_type != 0) attributes |= attr_set_map_exists | attr_fdd_allowed;
  blk.hdr().attributes(attributes);
  if (!opt_->media_name.empty()) blk.media_name(opt_->media_name);
  if (!opt_->media_description.empty()) blk.media_description(opt_->media_description);
  if (!opt_->software_name.empty()) blk.software_name(opt_->software_name);
}

}  // namespace MTF
