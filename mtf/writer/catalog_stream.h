// The catalog of one channel and job, built in a local file while the media is written: summary,
// metadata stream, one catalog block for each entry, FEND block.
#pragma once

#include <string>

#include "mtf/catalog/cat_summary.h"
#include "mtf/catalog/catalog_helper.h"
#include "mtf/common/end_blks.h"
#include "mtf/common/metadata_stream.h"
#include "mtf/common/sset_blk.h"
#include "mtf/common/tape_blk.h"
#include "services/file_buf.h"

namespace MTF {

// Used by one thread. Calling order: open, add_tape_blk, add_meta_stream, add_sset_blk, the
// entries, add_eset_blk, write. False from an operation means that the catalog can't be completed.
class Catalog_Stream {
 public:
  Catalog_Stream(unsigned long long base_fla, unsigned int format_logical_block_size,
                 unsigned int physical_block_size, unsigned short option_flags);
  Catalog_Stream(const Catalog_Stream&) = delete;
  Catalog_Stream& operator=(const Catalog_Stream&) = delete;

  // Makes the file at `path`, native, in place of one that is there.
  bool open(const std::string& path);

  bool add_tape_blk(const Tape_Blk& blk);
  // With the header as it was written to the media.
  bool add_meta_stream(const Metadata_Stream& stream);
  bool add_sset_blk(const SSet_Blk& blk);

  // Entries for blocks on this media. `space` is what the entry takes on its disk, in bytes; `name`
  // is stored even where the block on the media has it in a stream.
  bool add_vol_blk(const Vol_Blk& blk);
  bool add_dir_blk(const Dir_Blk& blk, unsigned long long space, const std::string& name);
  bool add_file_blk(const File_Blk& blk, unsigned long long space, unsigned long long ino,
                    unsigned short flags, const std::string& name);
  bool add_slnk_blk(const SLnk_Blk& blk, unsigned long long space, unsigned long long ino,
                    unsigned short flags, const std::string& name);
  bool add_hlnk_blk(const HLnk_Blk& blk, unsigned long long space, unsigned long long ino,
                    unsigned short flags, const std::string& name);
  bool add_devb_blk(const Devb_Blk& blk, unsigned long long space, unsigned long long ino,
                    unsigned short flags, const std::string& name);
  bool add_pdat_blk(const PDat_Blk& blk, const std::string& name);
  // Stores nothing.
  bool add_cfil_blk(const CFil_Blk& blk);
  // Ends the file.
  bool add_eset_blk(const ESet_Blk& blk);

  // Entries as they are, of this job or of an earlier one. The file-like ones get their checksum
  // computed anew.
  bool add_cat_vol_blk(const Cat_Vol_Blk& blk);
  bool add_cat_dir_blk(const Cat_Dir_Blk& blk);
  bool add_cat_file_blk(Cat_File_Blk& blk) { return add_cat_file_like(blk); }
  bool add_cat_slnk_blk(Cat_SLnk_Blk& blk) { return add_cat_file_like(blk); }
  bool add_cat_hlnk_blk(Cat_HLnk_Blk& blk) { return add_cat_file_like(blk); }
  bool add_cat_devb_blk(Cat_Devb_Blk& blk) { return add_cat_file_like(blk); }
  bool add_cat_pdat_blk(Cat_PDat_Blk& blk) { return add_cat_file_like(blk); }

  // Puts the FEND block behind the entries and the summary at the head, and closes the file.
  bool end();

  // Copies the finished file to the writer. Returns the bytes copied, or -1.
  long long write(IWriter& writer);

  const Cat_Summary& summary() const { return summary_; }
  // Changes the summary in memory alone; the file has no such field.
  void set_storage_size_to_summary(unsigned long long size) { summary_.storage_size(size); }
  // For a host that has no TAPE block to give.
  void set_seq(unsigned short seq) { seq_ = seq; }

 private:
  template <class Cat_Blk_Type, class Blk>
  bool add_file_like(const Blk& blk, unsigned long long space, unsigned long long ino,
                     unsigned short flags, const std::string& name);
  bool add_cat_file_like(Cat_Named_Blk& blk);
  // The entry in front of the file: refused without a name, else counted and appended.
  bool add_entry(const Cat_Named_Blk& blk);
  bool append(const char* data, unsigned int size);
  void add_info_to_summary(unsigned int type, unsigned short seq, unsigned long long space);

  std::string path_;
  MTF_FS::ofilebuf file_;
  unsigned long long length_ = 0;
  Cat_Summary summary_;
  Buffer block_;
  const unsigned long long base_fla_;
  const unsigned int format_logical_block_size_;
  [[maybe_unused]] const unsigned int physical_block_size_;
  const unsigned short option_flags_;
  unsigned short seq_ = 0;
  unsigned long long sset_off_ = 0;
  unsigned long long sset_fla_ = 0;
  signed char time_zone_ = 0;
};

}  // namespace MTF
