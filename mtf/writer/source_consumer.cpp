#include "mtf/writer/source_consumer.h"

#include <ace/Log_Msg.h>
#include <ace/OS_NS_errno.h>

#include "services/text.h"

namespace MTF {

bool Source_Consumer::next(Cat_Blk& blk) {
  Cat_Blk* block = nullptr;
  if (queue_->dequeue_head(block) == -1) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to get catalog block from producer, errno=%d\n"),
                      ACE_OS::last_error()),
                     false);
  }
  catalog_block_.reset(block);
  const Cat_Hdr& hdr = catalog_block_->hdr();
  if (hdr.type() == block_fend) return false;
  if (hdr.checksum() != hdr.calc_checksum()) {
    damaged_ = true;
    ACE_ERROR_RETURN(
        (LM_EMERGENCY,
         ACE_TEXT("Unexpected error in mtf/writer/source_consumer:%d\nFailed to verify "
                  "catalog_block_->hdr() checksum, identifier=%s, offset=%q\n"),
         __LINE__, "(consumer)", ACE_INT64{0}),
        false);
  }
  blk.set_buffer(catalog_block_->data(), hdr.length(), false);
  return true;
}

}  // namespace MTF
