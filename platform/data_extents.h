// Where an open file has data and where holes.
#pragma once

namespace platform {

struct Data_Extent {
  long long offset;
  long long size;
};

// True if the file has a hole in front of `size`, its length. A file system that doesn't tell holes
// has none.
bool has_hole(int fd, long long size);

// Finds the first stretch of data at or behind `from`, cut at `size`; an extent of size 0 at `size`
// where only a hole is left. Where the file has become shorter than `size`, the rest of it counts
// as data, which a read then finds missing. False with errno on failure.
bool next_extent(int fd, long long from, long long size, Data_Extent& out);

}  // namespace platform
