// Name, size, dates, attributes and space of a file of the local file system.
#pragma once

#include <string>

#include "mtf/common/file_blk.h"
#include "mtf/writer/backup_context.h"
#include "platform/attributes.h"

namespace MTF {

// Fills `blk` for the file `name` in the current directory of `ctx`, looked at under the shadow
// volume where there is one. Gives the path for the platform's wide calls in `wide_path` and the
// bytes that the file takes on its volume in `file_space`. Above 0 on success; else 0, with
// `error` set where the file could not be examined.
int set_file_blk_win(File_Shaped_Blk& blk, std::wstring& wide_path, unsigned long long& file_space,
                     int& error, Backup_Context* ctx, const std::string& name);

// The same from what was seen of the file when it was opened.
void set_file_blk_win(File_Blk& blk, const platform::File_Facts& facts,
                      unsigned long long& file_space, const Backup_Context& ctx);

}  // namespace MTF
