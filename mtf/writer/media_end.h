// What stands at the end of a media: EOTM block, SPAD stream, filemark.
#pragma once

#include "mtf/writer/backup_context.h"
#include "mtf/writer/backup_option.h"
#include "services/storage.h"

namespace MTF {

// Holds two pointers that are not owned.
class Media_End {
 public:
  Media_End(const Backup_Option* opt, Backup_Context* ctx) : opt_(opt), ctx_(ctx) {}

  bool write(IWriter& writer);

 private:
  const Backup_Option* opt_;
  Backup_Context* ctx_;
};

}  // namespace MTF
