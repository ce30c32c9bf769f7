#include "mtf/common/vol_blk.h"

#include <ace/Log_Msg.h>

namespace MTF {

Vol_Blk::Vol_Blk(Buffer& buffer, bool init) : DBLK(buffer, init) {
  if (init) start(block_volb, fixed_size);
}

bool Vol_Blk::device_name(const std::string& name) {
  if (!has_room(name.size())) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to set vol device, device name too long\n")),
                     false);
  }
  store_string(56, name);
  return true;
}

bool Vol_Blk::machine_name(const std::string& name) {
  if (!has_room(name.size())) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to set machine, machine too long\n")), false);
  }
  store_string(64, name);
  return true;
}

}  // namespace MTF
