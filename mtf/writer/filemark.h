// How the writers put a filemark on the media.
#pragma once

#include "mtf/writer/backup_context.h"
#include "services/storage.h"

namespace MTF {

// Puts a filemark at the position and moves on by what it took.
inline bool write_filemark(Backup_Context& ctx, IWriter& writer) {
  const unsigned long long written = writer.write_filemark(ctx.pba);
  if (written == IWriter::failed) return false;
  ctx.add_length(written);
  return true;
}

}  // namespace MTF
