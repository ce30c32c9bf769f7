// A file mapped into memory, in which a stream is built and from which it is written.
#pragma once

#include <string>

#include "platform/mapping.h"
#include "services/storage.h"

namespace MTF {

// The mapping never moves. One thread at a time.
class MMap {
 public:
  // With `keep_name` the file stays under its name; else it has none once it is open and goes with
  // the object.
  explicit MMap(bool keep_name) : keep_name_(keep_name) {}

  // Maps `size` zero bytes of a new file at the native path `path`, in place of what is there.
  // False with errno.
  bool map(const char* path, unsigned long long size);

  // Makes at least `size` bytes mapped; the new ones are zero. False with errno, with the mapping
  // as it was.
  bool remap(unsigned long long size);

  // The address of an offset; null if it is past the mapped size or nothing is mapped.
  char* at(unsigned long long offset) {
    return offset < mapping_.size() ? mapping_.data() + offset : nullptr;
  }

  // Writes the first `length` bytes in pieces of up to 1 MiB that are whole blocks, but for the
  // last. Returns the bytes written, or -1 if the writer took fewer or so much isn't mapped.
  long long write(IWriter& writer, unsigned long long block_size, unsigned long long length);

 private:
  platform::Mapping mapping_;
  std::string path_;
  bool keep_name_;
};

}  // namespace MTF
