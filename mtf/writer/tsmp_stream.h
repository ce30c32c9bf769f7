// The set map of a media (TSMP stream), built in a mapped file while the media is written: stream
// header, set map header, entry of the data set, one entry for each volume.
#pragma once

#include <string>

#include "mtf/common/end_blks.h"
#include "mtf/common/fdd_blks.h"
#include "mtf/common/sm_entry.h"
#include "mtf/common/tape_blk.h"
#include "mtf/writer/backup_option.h"
#include "services/mmap.h"
#include "services/storage.h"

namespace MTF {

// Used by one thread. Calling order: open, add_tape_blk, add_sset_blk, the blocks of the set,
// add_eset_blk, set_fdd_pba, write. False from an operation means that the stream can't be
// completed; a mapping that fails gets a line.
class TSMP_Stream {
 public:
  // `opt` is not owned and must outlive the stream.
  explicit TSMP_Stream(const Backup_Option* opt);
  TSMP_Stream(const TSMP_Stream&) = delete;
  TSMP_Stream& operator=(const TSMP_Stream&) = delete;

  // Makes the file at `path`, native, and takes its name away again. False, with errno, if there is
  // no room for it.
  bool open(const std::string& path);

  bool add_tape_blk(const Tape_Blk& blk);
  // Starts the entry of the set.
  bool add_sset_blk(const SSet_Blk& blk);
  // Adds a volume to the map. False, with errno and with nothing counted, if there is no room.
  bool add_vol_blk(const Vol_Blk& blk);

  // These only count.
  bool add_dir_blk(const Dir_Blk& blk);
  bool add_file_blk(const File_Blk& blk);
  bool add_slnk_blk(const SLnk_Blk& blk);
  bool add_hlnk_blk(const HLnk_Blk& blk);
  bool add_devb_blk(const Devb_Blk& blk);
  bool add_pdat_blk(const PDat_Blk& blk);
  bool add_cfil_blk(const CFil_Blk& blk);

  bool add_eset_blk(const ESet_Blk& blk);

  // Sets the physical block address of the TFDD stream.
  bool set_fdd_pba(unsigned long long pba);

  // Writes the stream. Returns the bytes written, or -1.
  long long write(IWriter& writer);

  // Puts `size` bytes behind what is there, zero bytes where `data` is null. False, with errno and
  // with all as it was, if there is no room.
  bool append(const char* data, unsigned long long size);

 private:
  bool count_file(const File_Shaped_Blk& blk);
  void take_views();

  const Backup_Option* opt_;
  std::string path_;
  MMap map_;
  Buffer block_;
  unsigned long long used_ = 0;
  unsigned short seq_ = 0;
  unsigned short password_algorithm_ = 0;
  // The views lie in the mapping, and are taken anew whenever it has grown.
  Set_Map_Hdr header_;
  unsigned long long header_at_ = 0;
  SM_Entry entry_;
  unsigned int entry_at_ = 0;
  unsigned int entry_size_ = 0;
};

}  // namespace MTF
