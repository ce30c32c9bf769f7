// What the writers of files, links and devices do alike.
#pragma once

#include <string>

#include "mtf/common/file_blk.h"
#include "mtf/writer/backup_context.h"
#include "mtf/writer/backup_option.h"
#include "oxbase/path.h"
#include "services/event_handler.h"
#include "services/storage.h"

namespace MTF {

// Makes `path` that of the entry `name` of the current directory.
void set_entry_path(const Backup_Context& ctx, const std::string& name, oxbase::Path_T<char>& path);

// Gives a new block its ids, the date of now, its name and the attributes that go with them.
void set_file_shape(const Backup_Option& opt, Backup_Context& ctx, const std::string& name,
                    File_Shaped_Blk& blk);

// Writes a block and, where its name isn't in it, the FNAM stream behind it. Adds what it wrote to
// the position, and to `streams` where that was a stream. The code of a failure is the caller's.
bool write_shaped_blk(Backup_Context& ctx, File_Shaped_Blk& blk, IWriter& writer);
bool write_file_name(Backup_Context& ctx, const Ref_Ptr<Buffer>& buf, const File_Shaped_Blk& blk,
                     const std::string& name, unsigned short& streams, IWriter& writer);

// Counts an entry that is left out and sends its event, with the system's last error. `handler` may
// be null.
void report_skipped_file(Event_Handler* handler, const std::string& path, const char* message);

}  // namespace MTF
