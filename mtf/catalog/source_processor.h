// Reads a catalog file from its first byte to its last, entry by entry.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "mtf/catalog/cat_blk.h"
#include "platform/file.h"

namespace MTF {

// The catalog comes from the storage: every length, offset, type and checksum in it is checked
// before it is used. What is wrong is told once, by a line at LM_ERROR with the catalog's name
// and the position, and is the end of the reading. One thread at a time; a catalog of any size goes
// through one buffer of fixed size.
class Source_Processor {
 public:
  // `debug` adds a line at LM_DEBUG when a catalog has been read to its end.
  explicit Source_Processor(bool debug) : debug_(debug) {}
  virtual ~Source_Processor() = default;
  Source_Processor(const Source_Processor&) = delete;
  Source_Processor& operator=(const Source_Processor&) = delete;

  // What lines call the catalog, ahead of open(); else they show its path.
  void shown_name(const std::string& name) { name_shown_ = name; }

  // Opens the catalog at a native path and reads what stands in front of its entries. False, told
  // in the log, if that isn't sound. Called once.
  bool open(const std::string& path);

  // What stands between the components of a path in the catalog, where its names have NUL bytes.
  char separator() const { return '\\'; }

  // The text of the metadata stream.
  const std::string& metadata() const { return metadata_; }

  // True once something in the catalog was not sound or could not be read.
  bool failed() const { return failed_; }

 protected:
  // Moves to the next entry, false behind the last one and after a failure. FEND is no entry.
  bool next();

  // The entry that next() moved to and its name as it stands in it, valid until the next call.
  const Cat_Blk& entry() const { return entry_; }
  std::string_view name() const { return name_; }

  // Tells what is wrong at the entry and ends the reading; false.
  bool fail(const char* what);

 private:
  bool fetch(std::size_t size);
  void pass(std::size_t size);
  bool read_summary();
  bool read_metadata();
  bool read_metadata_text(unsigned long long length);
  bool check_header();
  bool check_entry();
  bool check_end();
  char* here() const { return buffer_.get() + at_; }

  const bool debug_;
  std::string name_shown_;
  platform::File file_;
  std::unique_ptr<char[]> buffer_;
  std::size_t at_ = 0;   // the first byte in the buffer that hasn't been passed
  std::size_t end_ = 0;  // behind the last byte in the buffer
  unsigned long long size_ = 0;
  unsigned long long position_ = 0;  // of the byte at at_
  unsigned long long entries_ = 0;
  std::size_t entry_size_ = 0;
  std::string metadata_;
  Cat_Blk entry_;
  std::string_view name_;
  bool ended_ = false;
  bool failed_ = false;
};

}  // namespace MTF
