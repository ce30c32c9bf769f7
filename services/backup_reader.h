// Files and directories read as backup records (platform/backup_read.h).
#pragma once

#include <memory>
#include <string>

#include "platform/backup_read.h"
#include "services/buffer.h"

namespace MTF_FS {

// Reads the records of one path: for each its head of 20 bytes, its name, its data. One thread at a
// time; it throws nothing but bad_alloc.
class Backup_Reader {
 public:
  // Reads what `source` gives or, without one, what lies on the machine's file systems. An
  // attribute of those that has to be left out gets a line at LM_WARNING that names it.
  explicit Backup_Reader(std::unique_ptr<platform::Record_Source> source = nullptr);
  Backup_Reader(const Backup_Reader&) = delete;
  Backup_Reader& operator=(const Backup_Reader&) = delete;

  // Goes to the first record of a path, in UTF-16 or as a system path, and closes the one before. A
  // directory is named with a separator at its end.
  bool open(const std::wstring& path);
  bool open(const std::string& system_path);

  // Reads up to `size` bytes, of one record only, and sets `size` to what came: 0 at the end. False
  // where the reading failed.
  bool read(unsigned char* data, unsigned int& size);

  // The same to the start of `buffer`, whose size is set to what came; its capacity grows to `size`
  // where it is less. Its size is 0 after a failure.
  bool read(MTF::Buffer& buffer, unsigned int size);

  // The Windows number of the last failure.
  int last_error() const;

  // The path, as a system path.
  const std::string& path() const { return path_; }

  // What open() saw when it looked at the file; null where the source of the records doesn't look.
  const platform::File_Facts* facts() const { return source_->facts(); }

 private:
  void tell_left_out(const std::string& name, const std::string& why) const;

  std::unique_ptr<platform::Record_Source> source_;
  std::string path_;
  bool out_of_memory_ = false;
};

// Holds one record, so that all of it is known to be readable before any of it is written.
class Pre_Backup_Reader {
 public:
  Pre_Backup_Reader() : record_(8) {}

  // Reads what follows the head `id`: name and data. False where the reading failed or came short,
  // or where memory is short.
  bool pre_read(Backup_Reader& reader, const _WIN32_STREAM_ID& id);

  // As of Backup_Reader, from the record read last.
  bool read(unsigned char* data, unsigned int& size);
  bool read(MTF::Buffer& buffer, unsigned int size);
  int last_error() const { return last_error_; }

 private:
  bool fail(int error);

  MTF::Buffer record_;
  unsigned int taken_ = 0;
  int last_error_ = 0;
};

}  // namespace MTF_FS
