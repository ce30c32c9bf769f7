// The running state that the writers of one media share: position, counters and error.
#pragma once

#include <map>
#include <string>

#include "mtf/writer/writer_hardlink_map.h"
#include "services/context.h"
#include "services/storage.h"

namespace MTF {

// What err_code says.
enum Backup_Error : unsigned int {
  error_none = 0,
  error_piece_open = 6,      // a piece could not be opened on the channel
  error_write = 9,           // writing to the media failed
  error_catalog = 10,        // a catalog refused an entry
  error_catalog_open = 11,   // a catalog could not be opened
  error_nothing_saved = 13,  // entries were skipped and no file was saved: the job failed
  error_skipped = 14,        // entries were skipped: a report, not a failure
};

class Ready_Files;

// Touched by one thread at a time. The position is the only truth about where a block lands: every
// writer adds what the storage took, nobody asks the storage.
struct Backup_Context : Context {
  Backup_Context(unsigned long long pba_shift, unsigned int fla_shift);

  // Moves the position by `count` bytes.
  void add_length(unsigned long long count);
  // Puts the position to `value` bytes from the start of the media.
  void set_length(unsigned long long value);

  // Makes `name` the current volume and looks up its shadow volume. Clears the current directory.
  void set_cur_vol(const std::string& name);

  // Records that the media side failed, with the text of `writer`. Returns false.
  bool write_failed(IWriter& writer);
  // Records that a catalog refused an entry, with the text of the system's last error.
  void catalog_failed();

  const unsigned long long pba_shift;
  const unsigned short fla_shift;
  unsigned long long fla = 0;     // format logical address of the position, rounded down
  unsigned long long pba = 0;     // physical block address of the position, rounded down
  unsigned long long length = 0;  // bytes written to the media so far
  unsigned int dir_id = 0;        // of the last DIRB
  unsigned int file_id = 0;       // of the last FILE or PDAT block
  unsigned int control_block_id = 0;
  unsigned short seq = 0;  // the job's sequence number
  unsigned short data_set_number = 0;
  unsigned long long last_eset_pba = 0;
  unsigned int fs_block_size = 0;  // of the file system of the current volume; a power of two
  unsigned long long channel = 0;
  Ref_Ptr<Writer_Hardlink_Map> hardlink_map;
  unsigned long long corrupt_file_count = 0;
  std::string shadow_vol;                                          // of cur_vol, or empty
  const std::map<std::string, std::string>* volume_map = nullptr;  // not owned; may be null
  const Ready_Files* ready_files = nullptr;                        // not owned; may be null
  bool dir_missing = false;  // the directory met last was skipped, so it is in no catalog
  int dir_error = 0;         // the errno of that
};

}  // namespace MTF
