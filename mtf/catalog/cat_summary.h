// The totals at the head of a catalog or source list file.
#pragma once

#include "services/record.h"

namespace MTF {

// Sizes are bytes on the disks of the sources: `total_size` of all files, `inc_size` of those that
// the job saved itself. The counts are of all that the job knows, but for `inc_file_count`.
class Cat_Summary {
 public:
  // Bytes of the record in a file.
  static constexpr unsigned int file_size = 96;

  // All zero.
  Cat_Summary();

  MTF_FIELD(unsigned int, catalog_mark, 2)
  MTF_FIELD(unsigned long long, total_size, 6)
  MTF_FIELD(unsigned long long, inc_size, 14)
  MTF_FIELD(unsigned long long, vol_count, 30)
  MTF_FIELD(unsigned long long, dir_count, 38)
  MTF_FIELD(unsigned long long, file_count, 46)
  MTF_FIELD(unsigned long long, large_file_count, 54)
  MTF_FIELD(unsigned long long, small_file_count, 62)
  MTF_FIELD(unsigned long long, inc_file_count, 70)
  MTF_FIELD(unsigned short, checksum, 94)
  // In memory only: bytes on the storage.
  MTF_FIELD(unsigned long long, storage_size, 96)

  // The checksum of the record as it stands.
  unsigned short calc_checksum() const;

  // Takes the record from the file_size bytes at `bytes`.
  void assign(const char* bytes);

  // The first file_size bytes are the record.
  const char* data() const { return record_; }

  // Logs the totals at LM_INFO.
  void dump() const;

 private:
  char* bytes() { return record_; }
  const char* bytes() const { return record_; }

  char record_[file_size + 8];
};

// How a file's space puts it among the small or the large files, in bytes.
constexpr unsigned long long small_file_limit = 102401;     // below it a file is small
constexpr unsigned long long large_file_limit = 524287999;  // above it a file is large

}  // namespace MTF
