// Makes the writer of the media based catalog.
#pragma once

#include "mtf/writer/backup_context.h"
#include "mtf/writer/backup_option.h"
#include "mtf/writer/imbc_writer.h"

namespace MTF {

class MBC_Writer_Factory {
 public:
  // Neither is owned; both must outlive what the factory makes.
  MBC_Writer_Factory(const Backup_Option* opt, Backup_Context* ctx) : opt_(opt), ctx_(ctx) {}
  virtual ~MBC_Writer_Factory() = default;

  // A new writer that the caller owns; null for any type but 1, and, with errno 12, when memory is
  // short.
  IMBC_Writer* create(unsigned short type);

 private:
  const Backup_Option* opt_;
  Backup_Context* ctx_;
};

}  // namespace MTF
