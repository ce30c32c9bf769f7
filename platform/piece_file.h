// An open piece of a storage, for writing from its start or for reading at any position.
#pragma once

#include <cstddef>
#include <string>

namespace platform {

// Owns the handle that Storage_Directory gave. One thread writes; read_at() may be called from
// several. Every failure leaves its errno.
class Piece_File {
 public:
  Piece_File() = default;
  ~Piece_File();
  Piece_File(Piece_File&& other) noexcept;
  Piece_File& operator=(Piece_File&& other) noexcept;

  // Makes a file without a name in `directory`, for writing and reading: it goes with its handle.
  bool open_unnamed(const std::string& directory);

  // Appends all of `size` bytes, however many calls of the system that takes. The bytes written
  // before a failure stay in the piece.
  bool write_all(const char* data, std::size_t size);

  // Returns when the data and the length are on the disk.
  bool sync();

  // True if nothing was open.
  bool close();

  // One sequential read: the bytes read, 0 at the end, -1 on failure.
  long long read(char* data, std::size_t size);

  // Reads up to `size` bytes from `offset`. Fewer only at the end of the piece; -1 on failure.
  long long read_at(unsigned long long offset, char* data, std::size_t size);

  // Asks the kernel to read `size` bytes from `offset`, without waiting for them.
  void read_ahead(unsigned long long offset, unsigned long long size);

  // Bytes in the piece; -1 on failure.
  long long size() const;

  // Lets the system forget what it remembers of the piece, as far as that is on the disk: reading
  // it then asks the disk.
  void forget_cached();

  bool is_open() const { return fd_ >= 0; }

  // The descriptor, -1 where nothing is open. It stays the object's.
  int handle() const { return fd_; }

 private:
  friend class Storage_Directory;

  int fd_ = -1;
};

}  // namespace platform
