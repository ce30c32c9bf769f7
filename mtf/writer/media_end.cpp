#include "mtf/writer/media_end.h"

#include "mtf/common/end_blks.h"
#include "mtf/writer/dblk_writer.h"
#include "mtf/writer/filemark.h"
#include "services/assertion.h"

namespace MTF {

bool Media_End::write(IWriter& writer) {
  Ref_Ptr<Buffer> buf = make_buffer();
  MTF_ASSERT_NOT_NULL(buf.get(), false);
  if (!buf->expand(DBLK::image_size)) return false;
  EOTM_Blk blk(*buf, true);
  blk.hdr().format_logical_address(ctx_->fla);
  blk.last_eset_pba(ctx_->last_eset_pba);
  const unsigned long long written = blk.write(writer);
  if (written == IWriter::failed) return false;
  ctx_->add_length(written);
  if (!write_spad_stream(*opt_, *ctx_, buf, writer, false)) return false;
  return write_filemark(*ctx_, writer);
}

}  // namespace MTF
