#include "mtf/writer/dblk_writer.h"

#include "mtf/common/dblk.h"
#include "mtf/common/stream.h"
#include "services/assertion.h"

namespace MTF {
namespace {

// Enough for the longest name stream, so that one never allocates.
constexpr unsigned int shared_buffer_size = MTF_PATH_MAX + Stream_Hdr::fixed_size;

}  // namespace

bool DBLK_Writer::init(const Backup_Option* opt, Backup_Context* ctx, Ref_Ptr<Buffer> buf,
                       IMBC_Writer* mbc_writer, Catalog_Writer* catalog) {
  MTF_ASSERT_NOT_NULL(opt, false);
  MTF_ASSERT_NOT_NULL(ctx, false);
  MTF_ASSERT_NOT_NULL(buf.get(), false);
  MTF_ASSERT_NOT_NULL(mbc_writer, false);
  MTF_ASSERT_NOT_NULL(catalog, false);
  opt_ = opt;
  ctx_ = ctx;
  buf_ = buf;
  mbc_writer_ = mbc_writer;
  catalog_ = catalog;
  buf_->expand(shared_buffer_size);
  return true;
}

}  // namespace MTF
