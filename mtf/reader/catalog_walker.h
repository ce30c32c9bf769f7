// The walk over a catalog, record by record.
#pragma once

#include <string_view>

#include "mtf/reader/piece_window.h"
#include "mtf/reader/stream_data.h"

namespace MTF {

// One entry of a catalog. The views are valid until the next one is asked for.
struct Catalog_Record {
  unsigned long long position;
  unsigned int type;
  unsigned short seq;
  unsigned long long address;  // format logical address on the media of `seq`
  unsigned long long size;
  unsigned long long sset_off;
  unsigned long long sset_fla;
  unsigned short flags;
  unsigned long long ino;
  unsigned long long space;
  unsigned char string_type;
  signed char time_zone;
  std::string_view date;  // 5 bytes; empty for a VOLB
  std::string_view name;
};

// What the record at the head of a catalog counts.
struct Catalog_Totals {
  unsigned long long total_size = 0;
  unsigned long long inc_size = 0;
  unsigned long long vol_count = 0;
  unsigned long long dir_count = 0;
  unsigned long long file_count = 0;
  unsigned long long large_file_count = 0;
  unsigned long long small_file_count = 0;
  unsigned long long inc_file_count = 0;
};

// Gives the entries of a catalog in order and checks what can be seen in place: checksums, lengths,
// names, the end, and the counts. After damage it goes on with the next sound record.
class Catalog_Walker {
 public:
  // `seq` is the number of the job that the catalog belongs to. Keeps both references.
  Catalog_Walker(Piece_Window& window, unsigned int seq, const Fault_At& on_fault)
      : window_(window), seq_(seq), on_fault_(on_fault) {}

  // Reads what stands in front of the entries. Called once, first.
  void open();

  // The next entry; false behind the last one. Every fault has been reported.
  bool next(Catalog_Record& record);

  // Where the text of the metadata stream stands; its length is 0 if there is none.
  unsigned long long metadata_position() const { return metadata_position_; }
  unsigned long long metadata_length() const { return metadata_length_; }

 private:
  bool open_summary();
  bool open_metadata();
  bool parse(const char* header, Catalog_Record& record);
  bool take_end(const char* header);
  void find_record();
  void count(const Catalog_Record& record);
  void compare_totals();

  Piece_Window& window_;
  unsigned int seq_;
  const Fault_At& on_fault_;
  unsigned long long position_ = 0;
  unsigned long long metadata_position_ = 0;
  unsigned long long metadata_length_ = 0;
  bool summary_sound_ = false;
  bool lost_ = false;  // records may have been passed over
  bool done_ = false;
  Catalog_Totals stored_;
  Catalog_Totals counted_;
};

}  // namespace MTF
