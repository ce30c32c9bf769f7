#include "oxbase/system.h"

#include <system_error>

#include "platform/host.h"
#include "platform/tree.h"
#include "platform/utf16.h"

namespace oxbase {

bool rm_rf(const char* path) {
  return platform::remove_tree(path ? path : "");
}

bool get_disk_free_space(const char* system_path, FS_Stat& out) {
  return platform::filesystem_block_size(system_path, out.block_size);
}

POSIX_Error::POSIX_Error(int code, int /*family*/) : text_(std::generic_category().message(code)) {}

UTF16_String::UTF16_String(const std::wstring& utf16) : utf8_(platform::from_utf16(utf16)) {}

}  // namespace oxbase
