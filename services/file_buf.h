// Stream buffers over files: sources are read, the job's working files are written.
#pragma once

#include <memory>
#include <streambuf>
#include <string>

#include "platform/file.h"

namespace MTF_FS {

// How the working files are opened: write only, made or emptied, not inherited, with backup
// semantics; and what others may do meanwhile: read, write and delete.
constexpr int write_flags = 0x2000381;
constexpr int share_all = 7;

// Reads a file of the sources. One thread at a time; it throws nothing but bad_alloc from open().
class ifilebuf : public std::streambuf {
 public:
  explicit ifilebuf(unsigned long long buffer_size);

  // Opens a regular file by its system path and closes the one before. `flags` and `share` are
  // Windows' and change nothing here. Returns 0, or -1 with errno.
  int open(const char* system_path, int flags, int share);
  int open(const std::string& system_path, int flags, int share);

  // The errno of the last read that failed since open(), else 0.
  int last_error() const { return last_error_; }

  // What open() saw when it looked at the file, and the record of it.
  const platform::File_Facts& facts() const { return file_.facts(); }
  const _stat64& stat() const { return file_.stat(); }

 protected:
  // sgetn() gives what is at hand, or else what one read of the system yields: that may be less
  // than asked for before the end, which 0 alone tells. -1 is a failed read. A request of some
  // size goes past the buffer, straight into the caller's memory.
  std::streamsize xsgetn(char* data, std::streamsize size) override;
  int_type underflow() override;

 private:
  long long read(char* data, std::size_t size);
  long long fill();

  platform::File file_;
  std::unique_ptr<char[]> buffer_;  // made when a small read first asks for it
  std::size_t buffer_size_;
  std::string path_;  // kept for its memory
  int last_error_ = 0;
};

// Writes a local working file. One thread at a time; it throws nothing but bad_alloc from open(). A
// failure is logged with the file's path and the reason.
class ofilebuf : public std::streambuf {
 public:
  explicit ofilebuf(unsigned long long buffer_size);
  ~ofilebuf() override;

  // Makes or empties the file at a native path, with mode 0600, and closes the one before. `flags`
  // and `share` are Windows' and change nothing here. Returns 0, or -1 with errno.
  int open(const char* native_path, int flags, int share);

  // Writes out what is buffered and moves to `offset`, from the start, the position or the end for
  // `whence` 0, 1 or 2. Returns the new position, or -1 with errno.
  long long seek(long long offset, int whence);

  // Writes out what is buffered and closes the file. Returns 0, also where none is open, or -1
  // with errno if anything written may be lost; it is closed in any case.
  int close();

 protected:
  // sputn() returns fewer than `size` on failure, with errno.
  std::streamsize xsputn(const char* data, std::streamsize size) override;
  int_type overflow(int_type c) override;
  int sync() override;

 private:
  bool flush();
  bool write(const char* data, std::size_t size);

  platform::File file_;
  std::string path_;
  int error_ = 0;  // of the write that failed: no later one may make up for it
  std::unique_ptr<char[]> buffer_;
  std::size_t buffer_size_;
};

}  // namespace MTF_FS
