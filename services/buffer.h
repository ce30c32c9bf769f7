// A growable byte buffer: the block, stream and data images of the writers are built in it.
#pragma once

#include <memory>

#include "services/ref_ptr.h"

namespace MTF {

// Used by one thread at a time.
class Buffer {
 public:
  // An empty buffer with no memory, whose data will start on a multiple of `alignment`, a power of
  // two.
  explicit Buffer(unsigned char alignment);
  ~Buffer();
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;

  // Makes the capacity at least `n` bytes; new bytes are zero. Keeps the bytes up to the old
  // capacity and the size. False when memory is short; the buffer is then as it was.
  bool expand(unsigned int n);

  // Puts `n` bytes at the start of the data, for which the capacity must be there already. Leaves
  // the size alone.
  void copy(const char* data, unsigned int n);

  char* data() { return base_ + offset_; }
  const char* data() const { return base_ + offset_; }
  unsigned int capacity() const { return capacity_; }  // bytes usable from data() on
  unsigned int size() const { return size_; }          // bytes in use, as the user set it
  void size(unsigned int n) { size_ = n; }

 private:
  char* base_ = nullptr;
  unsigned int offset_ = 0;
  unsigned int capacity_ = 0;
  unsigned int size_ = 0;
  unsigned char alignment_;
};

// A new empty buffer; null, with errno 12, when memory is short.
Ref_Ptr<Buffer> make_buffer();

}  // namespace MTF
