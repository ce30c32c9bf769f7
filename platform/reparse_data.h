// Where a symbolic link leads to, in the form of Windows.
#pragma once

#include <string>

namespace platform {

// Appends the reparse data of a symbolic link (REPARSE_DATA_BUFFER with the tag
// IO_REPARSE_TAG_SYMLINK) to the native path `target`, which may be any bytes but NUL. Both of its
// names are the target in system form, in UTF-16; separators stay as they are, doubled ones too.
void append_reparse_data(const std::string& target, std::string& out);

}  // namespace platform
