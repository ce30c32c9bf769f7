// The file and directory detail of a media (TFDD stream), built in a local file while the media is
// written: stream header, one entry for each block, FEND entry.
#pragma once

#include <string>

#include "mtf/common/end_blks.h"
#include "mtf/common/fdd_blks.h"
#include "mtf/common/sset_blk.h"
#include "mtf/common/tape_blk.h"
#include "mtf/writer/backup_option.h"
#include "services/file_buf.h"
#include "services/storage.h"

namespace MTF {

// Used by one thread. Calling order: open, add_tape_blk, add_sset_blk, the entries, end, write.
// False from an operation means that the stream can't be completed; a local file that fails gets a
// line.
class TFDD_Stream {
 public:
  // `opt` is not owned and must outlive the stream.
  explicit TFDD_Stream(const Backup_Option* opt);
  TFDD_Stream(const TFDD_Stream&) = delete;
  TFDD_Stream& operator=(const TFDD_Stream&) = delete;

  // Makes or empties the file at `path`, native.
  bool open(const std::string& path);

  // Takes the number of the media.
  bool add_tape_blk(const Tape_Blk& blk);
  // These two store nothing.
  bool add_sset_blk(const SSet_Blk& blk);
  bool add_cfil_blk(const CFil_Blk& blk);

  // Entries in the order of the blocks on the media. `name` is stored even where the block has it
  // in a stream. Nothing is stored for an entry without a name: the result is false.
  bool add_vol_blk(const Vol_Blk& blk);
  bool add_dir_blk(const Dir_Blk& blk, const std::string& name);
  bool add_file_blk(const File_Blk& blk, const std::string& name);
  bool add_slnk_blk(const SLnk_Blk& blk, const std::string& name);
  bool add_hlnk_blk(const HLnk_Blk& blk, const std::string& name);
  bool add_devb_blk(const Devb_Blk& blk, const std::string& name);
  bool add_pdat_blk(const PDat_Blk& blk, const std::string& name);

  // Puts the FEND entry behind the entries and the header at the head, and closes the file.
  bool end();

  // Copies the finished file to the writer. Returns the bytes copied, or -1.
  long long write(IWriter& writer);

  // Puts `size` bytes of an entry behind what is there.
  bool append(const char* content, unsigned short size);

 private:
  template <class Entry, class Blk>
  bool add_named(const Blk& blk, const std::string& name);
  template <class Entry>
  bool append_entry(const Entry& entry);
  bool append_end();
  bool write_header();

  const Backup_Option* opt_;
  std::string path_;
  MTF_FS::ofilebuf file_;
  unsigned long long size_ = 0;
  Buffer block_;
  unsigned short seq_ = 0;
};

}  // namespace MTF
