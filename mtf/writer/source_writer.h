// Writes a source list file: volumes, directories and files with their sizes and times, in the
// records of a catalog, behind their totals.
//
// The file is a Cat_Summary (96 bytes), the blocks back to back, and a FEND block. Its summary
// counts what a block's header says of its size: `total_size` and `inc_size` of every block.
#pragma once

#include <ace/Copy_Disabled.h>

#include <string>

#include "mtf/catalog/cat_summary.h"
#include "mtf/catalog/catalog_helper.h"
#include "platform/stat.h"
#include "services/buffer.h"
#include "services/file_buf.h"

namespace MTF {

// Open once, write any number of times, close once; one thread at a time. Every result is true on
// success. A failed write leaves the object usable and its file worthless: a file that wasn't
// closed, or not without a failure, has a blank summary or no FEND block. The destructor doesn't
// close.
class Source_Writer : private ACE_Copy_Disabled {
 public:
  // `seq` goes into each block, cut to 16 bits. `separator` is that of the paths given to write().
  Source_Writer(unsigned int seq, char separator);
  ~Source_Writer();

  // Makes or empties the file at the native path `path`.
  bool open(const std::string& path);

  // Adds one source by its full path and its record: the root of a volume, a directory, or a file,
  // of which the leaf name goes into the list. False for what can be none of these.
  bool write(const std::string& path, _stat64* st);
  // Adds a block as it is.
  bool write(const Cat_Blk& block);

  // Puts the end and the totals into the file.
  bool close();

  // What write() chooses among.
  bool write_vol(const std::string& path);
  bool write_dir(const std::string& path);
  bool write_file(const std::string& path, _stat64* st);

  void add_info_to_summary(const Cat_Blk& block);
  bool append(const char* buf, unsigned int len);

 private:
  template <class Blk>
  bool write_named(const std::string& path);
  template <class Cat_Blk_Type>
  bool write_file_like(const std::string& path, const _stat64& st);
  bool too_long(const std::string& path);
  void add_file(unsigned long long size);

  unsigned int seq_;
  char separator_;
  std::string path_;
  MTF_FS::ofilebuf out_;
  Cat_Summary summary_;
  Buffer buf_;
};

}  // namespace MTF
