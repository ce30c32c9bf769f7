// The stat streams: ownership and inode data of what wasn't read as backup records.
#pragma once

#include "mtf/common/stream.h"
#include "mtf/writer/backup_context.h"
#include "mtf/writer/ibackup_callback.h"
#include "platform/stat.h"
#include "services/id_mapper.h"

namespace MTF {

// The short form (STAT).
class Unix_Stat_Stream : public Stream {
 public:
  explicit Unix_Stat_Stream(const Ref_Ptr<Buffer>& buffer);

  // Makes the record the stream's data. False, with a line at LM_ERROR, when memory is short.
  bool set_stat(const _stat64& stat);
};

// The long form (CTEX), with the names of owner and group.
class Unix_Stat_Extent_Stream : public Stream {
 public:
  // `id_mapper` is not owned.
  Unix_Stat_Extent_Stream(const Ref_Ptr<Buffer>& buffer, ID_Mapper* id_mapper);

  // As above. An id without a name leaves the name out.
  bool set_stat(const _stat64& stat);

 private:
  ID_Mapper* id_mapper_;
};

// The long form with what the host says.
class Callback_Stat_Stream : public Stream {
 public:
  explicit Callback_Stat_Stream(const Ref_Ptr<Buffer>& buffer);

  // As above. An empty name, or one too long for the record, is left out.
  bool set_stat(const Callback_Stat& stat);
};

// Write the long form, alignment included, with the data in `buf`. The code of a failure is the
// caller's to set.
bool write_unix_stat(Backup_Context& ctx, const Ref_Ptr<Buffer>& buf, const _stat64& stat,
                     IWriter& writer);
bool write_callback_stat(Backup_Context& ctx, const Ref_Ptr<Buffer>& buf, const Callback_Stat& stat,
                         IWriter& writer);

}  // namespace MTF
