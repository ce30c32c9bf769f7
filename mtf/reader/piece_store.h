// Where the way back gets its pieces from. Implemented by the host.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace MTF {

// One piece, open for reading at any position.
class IRandom_Reader {
 public:
  virtual ~IRandom_Reader() = default;

  // Bytes in the piece.
  virtual unsigned long long size() const = 0;

  // Reads up to `size` bytes from `offset` into `data`. Returns the bytes read, fewer than asked
  // for only at the end of the piece, -1 on failure with errno set.
  virtual long long read_at(unsigned long long offset, char* data, unsigned long long size) = 0;

  // Says that the `size` bytes from `offset` will be asked for soon. A reader from a disk may have
  // them read meanwhile; must not wait for that. Told only while reads come from a disk.
  virtual void read_ahead(unsigned long long /*offset*/, unsigned long long /*size*/) {}
};

class IPiece_Store {
 public:
  virtual ~IPiece_Store() = default;

  // The names of all pieces, in any order. False, with `error` set, if they can't be listed.
  virtual bool pieces(std::vector<std::string>& names, std::string& error) = 0;

  // Opens the piece `name`; null, with `error` set, on failure.
  virtual std::unique_ptr<IRandom_Reader> open(const std::string& name, std::string& error) = 0;
};

}  // namespace MTF
