// A piece seen through a buffer of fixed size.
#pragma once

#include <cstddef>
#include <vector>

#include "mtf/reader/piece_store.h"

namespace MTF {

// Gives bounds-checked views of a piece. Reading forward costs one read of the piece for each
// `capacity` bytes. Used by one thread.
class Piece_Window {
 public:
  static constexpr std::size_t walk_capacity = 0x100000;  // for a piece that is read in order
  static constexpr std::size_t look_capacity = 0x10000;   // for a look here and there
  // The longest view: no compression frame, block or record of the system is longer.
  static constexpr std::size_t max_view = 0x1000000;

  // Keeps the reference: `reader` must outlive the window.
  explicit Piece_Window(IRandom_Reader& reader, std::size_t capacity = walk_capacity);

  IRandom_Reader& reader() { return reader_; }

  // Bytes in the piece.
  unsigned long long size() const { return size_; }

  // True if the `length` bytes from `offset` lie inside the piece.
  bool holds(unsigned long long offset, unsigned long long length) const {
    return offset <= size_ && length <= size_ - offset;
  }

  // The `length` bytes from `offset`, valid until the next call; null if they don't lie inside the
  // piece, are more than `max_view`, or can't be read.
  const char* view(unsigned long long offset, std::size_t length);

 private:
  bool fill(unsigned long long offset, std::size_t length);
  void ask_ahead(bool goes_on);

  IRandom_Reader& reader_;
  unsigned long long size_;
  std::size_t capacity_;
  std::vector<char> buffer_;
  unsigned long long start_ = 0;  // position in the piece of the first byte in the buffer
  std::size_t filled_ = 0;
  bool is_cold_ = false;               // reads came from a disk
  unsigned long long disk_reads_ = 0;  // of the thread, when it was last looked at
  unsigned long long asked_ = 0;       // up to here the reader was told
};

}  // namespace MTF
