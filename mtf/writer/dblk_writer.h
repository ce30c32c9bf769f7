// The base of all block writers, and the functions that keep a media aligned.
#pragma once

#include <string>

#include "mtf/writer/backup_context.h"
#include "mtf/writer/backup_option.h"
#include "services/buffer.h"
#include "services/storage.h"

namespace MTF {

class Catalog_Writer;
class IMBC_Writer;
class Stream;

// What the writing of content gives besides 0 (all written) and -1 (the media side failed).
enum Content_Result : int {
  content_corrupt = 2,  // a read failed and the streams were closed out
  content_unknown = 4,  // a stream or record of unknown kind stopped the work
};

// Turns catalog blocks of one type into descriptor blocks and streams on the media. Belongs to one
// task and runs on its thread.
class DBLK_Writer {
 public:
  virtual ~DBLK_Writer() = default;

  // Stores what the writer works with, none of it owned but the shared buffer. False if anything is
  // missing.
  virtual bool init(const Backup_Option* opt, Backup_Context* ctx, Ref_Ptr<Buffer> buf,
                    IMBC_Writer* mbc_writer, Catalog_Writer* catalog);

  // The block type that the writer serves.
  virtual unsigned int type() const = 0;

  // Binds the writer to a catalog block of `size` bytes, which stay the caller's and must stay
  // valid until write() returns. False makes the data set drop the block.
  virtual bool reset(char* buf, unsigned int size) = 0;

  // Writes the block: 0 written, 1 skipped or left without a catalog entry, -1 a failure that ends
  // the data set.
  virtual int write(IWriter& writer) = 0;

 protected:
  const Backup_Option* opt_ = nullptr;
  Backup_Context* ctx_ = nullptr;
  Ref_Ptr<Buffer> buf_;
  IMBC_Writer* mbc_writer_ = nullptr;
  Catalog_Writer* catalog_ = nullptr;
  int last_error_ = 0;  // of the last failed look at a file or directory
};

// Brings the position to a multiple of 4, where every stream starts.
bool write_to_stream_align(Backup_Context& ctx, IWriter& writer);

// Writes a stream that has its data, on the next boundary of streams. The code of a failed write is
// the caller's to set.
bool write_small_stream(Backup_Context& ctx, Stream& stream, IWriter& writer);

// Writes a SPAD stream that ends on a multiple of the format logical block (`flb` true) or of the
// physical block. On a multiple already it takes a whole block, and where less than its 22 bytes
// are left a block more.
bool write_spad_stream(const Backup_Option& opt, Backup_Context& ctx, const Ref_Ptr<Buffer>& buf,
                       IWriter& writer, bool flb);

// Fills up to the next physical block with zero bytes that belong to no stream; nothing on a
// multiple already.
bool write_pba_align(const Backup_Option& opt, Backup_Context& ctx, IWriter& writer);

// Writes the block that says that the file before it went corrupt: at `offset` in its stream
// `stream_number`, counted from 1.
bool write_cfil_blk(const Backup_Option& opt, Backup_Context& ctx, const Ref_Ptr<Buffer>& buf,
                    unsigned int attributes, unsigned long long offset,
                    unsigned short stream_number, IWriter& writer);

// Copies the local file at `path` to the writer. Returns the bytes copied, or -1. Leaves the
// position alone.
long long copy_file(const std::string& path, IWriter& writer);

}  // namespace MTF
