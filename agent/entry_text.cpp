#include "agent/entry_text.h"

#include "services/text.h"

namespace agent {

const char* type_text(unsigned int type) {
  switch (type) {
    case MTF::block_volb:
      return "volume";
    case MTF::block_dirb:
      return "dir";
    case MTF::block_file:
      return "file";
    case MTF::block_hlnk:
      return "hardlink";
    case MTF::block_slnk:
      return "symlink";
    case MTF::block_devb:
      return "device";
    default:
      return "other";
  }
}

}  // namespace agent
