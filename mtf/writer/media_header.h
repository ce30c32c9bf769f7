// What stands at the start of a media: TAPE block, SPAD stream, filemark.
#pragma once

#include "mtf/writer/backup_context.h"
#include "mtf/writer/backup_option.h"
#include "services/buffer.h"
#include "services/storage.h"

namespace MTF {

class Catalog_Writer;
class IMBC_Writer;
class Tape_Blk;

// Holds two pointers that are not owned.
class Media_Header {
 public:
  Media_Header(const Backup_Option* opt, Backup_Context* ctx) : opt_(opt), ctx_(ctx) {}
  virtual ~Media_Header() = default;

  bool write(IWriter& writer, IMBC_Writer& mbc_writer, Catalog_Writer& catalog);

 private:
  bool write_tape_blk(Buffer& buffer, IWriter& writer, IMBC_Writer& mbc_writer,
                      Catalog_Writer& catalog);
  void set_tape_blk(Tape_Blk& blk);

  const Backup_Option* opt_;
  Backup_Context* ctx_;
};

}  // namespace MTF
