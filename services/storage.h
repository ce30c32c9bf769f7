// The storage of a job, implemented by the host: one Channel for each parallel stream, on which one
// piece (a media or a catalog) is open at a time.
//
// A Channel with its IWriter or IReader is used by one thread at a time. No operation may throw.
#pragma once

#include <string>

#include "services/ref_ptr.h"

namespace MTF {

// The sink of the piece that is open for writing. It stays usable for size() and err_msg() after
// the channel has closed the piece.
class IWriter {
 public:
  // The result of write_filemark() when it failed.
  static constexpr unsigned long long failed = ~0ULL;

  virtual ~IWriter() = default;

  // Appends `size` bytes from `data`, which the caller may reuse at once. Returns the bytes taken:
  // anything other than `size` is a failure.
  virtual unsigned long long write(const char* data, unsigned long long size) = 0;

  // Makes the writer ready for the first data of a stream, and reports an error of an earlier write
  // that was delayed. Doesn't have to force anything to the disk.
  virtual bool flush() = 0;

  // Keeps its place; the system calls it nowhere.
  virtual bool unused_before_filemark() { return true; }

  // Puts a filemark on the media; `pba` is the physical block address reached, counted from the
  // start of the piece. Returns the bytes that the filemark took, 0 included, or `failed`.
  virtual unsigned long long write_filemark(unsigned long long pba) = 0;

  // Keeps its place; the system calls it nowhere.
  virtual bool unused_before_size() { return true; }

  // Bytes in the piece so far.
  virtual unsigned long long size() = 0;

  // The text of the last failure; empty where nothing failed.
  virtual std::string err_msg() = 0;
};

// The source of the piece that is open for reading, from its first byte to its last.
class IReader {
 public:
  virtual ~IReader() = default;

  // Reads up to `size` bytes into `data`. Returns the bytes read, 0 at the end of the piece, -1 on
  // failure.
  virtual long long read(char* data, unsigned long long size) = 0;
};

// One storage connection of a job.
class Channel {
 public:
  // What a piece is opened for.
  static constexpr int mode_read = 1;
  static constexpr int mode_write = 2;

  virtual ~Channel() = default;

  // Keeps its place; the system calls it nowhere.
  virtual bool unused_before_disconnect() { return true; }

  // Ends the connection; called once after close() when a job is cleaned up.
  virtual void disconnect() = 0;

  // Opens the piece `name` for `mode`; `flag` is 0. A piece opened for writing starts empty.
  virtual bool open(const char* name, int mode, int flag) = 0;

  // Keeps its place; the system calls it nowhere.
  virtual bool unused_before_close() { return true; }

  // Closes the open piece; only then is a written piece complete. True where none is open. A job
  // that failed or was cancelled closes its cut pieces too.
  virtual bool close() = 0;

  // Deletes the piece `name`; false where that failed or there is none.
  virtual bool remove(const char* name) = 0;

  // The sink or source of the open piece, owned by the channel and asked for again after each
  // open(); null on failure.
  virtual IWriter* writer() = 0;
  virtual IReader* reader() = 0;

  // The text of the last failure; empty where nothing failed.
  virtual std::string err_msg() = 0;
};

// Makes the channels of a job.
class Channel_Factory {
 public:
  virtual ~Channel_Factory() = default;

  // A new channel; null on failure. The order says nothing of the numbers of the channels, and
  // remove_storage_file() asks for one more, which gets no disconnect().
  virtual Ref_Ptr<Channel> create() = 0;

  // Tells the block size of the job in bytes, once, before the first create().
  bool bytes_per_blk(unsigned int physical_block_size) {
    bytes_per_blk_ = physical_block_size;
    return true;
  }

 protected:
  unsigned int bytes_per_blk_ = 0;
};

}  // namespace MTF
