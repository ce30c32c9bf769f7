// A file or directory as the records of a Windows backup read: everything that it has.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "platform/attributes.h"
#include "platform/extended_attributes.h"

namespace platform {

// The head of a record. Behind it come the record's name, in UTF-16, and its data.
struct WIN32_STREAM_ID {
  unsigned int dwStreamId;
  unsigned int dwStreamAttributes;
  unsigned long long Size;  // bytes of data, the name not counted
  unsigned int dwStreamNameSize;
};
using _WIN32_STREAM_ID = WIN32_STREAM_ID;

// Bytes of a head as it is read, little-endian and without gaps.
constexpr unsigned int stream_id_size = 20;
void store_stream_id(const WIN32_STREAM_ID& id, char* to);
WIN32_STREAM_ID load_stream_id(const char* from);

constexpr unsigned int BACKUP_DATA = 1;
constexpr unsigned int BACKUP_EA_DATA = 2;
constexpr unsigned int BACKUP_SECURITY_DATA = 3;
constexpr unsigned int BACKUP_ALTERNATE_DATA = 4;
constexpr unsigned int BACKUP_LINK = 5;
constexpr unsigned int BACKUP_PROPERTY_DATA = 6;
constexpr unsigned int BACKUP_OBJECT_ID = 7;
constexpr unsigned int BACKUP_REPARSE_DATA = 8;
constexpr unsigned int BACKUP_SPARSE_BLOCK = 9;  // its data starts with an 8-byte offset

constexpr unsigned int STREAM_MODIFIED_WHEN_READ = 0x1;
constexpr unsigned int STREAM_CONTAINS_SECURITY = 0x2;
constexpr unsigned int STREAM_SPARSE_ATTRIBUTE = 0x8;

// Gives the records of one path after the other, as one row of bytes. One thread at a time.
class Record_Source {
 public:
  virtual ~Record_Source() = default;

  // Closes the path before and goes to the first record of a system path; one with a separator at
  // its end must be a directory, any other a regular file. False on failure; last_error() and errno
  // tell why.
  virtual bool open(const std::string& system_path) = 0;

  // Reads up to `size` bytes, of one record only: as many as it has, unless its file has become
  // shorter or fails further on. 0 at the end, -1 on failure; last_error() and errno tell why.
  virtual long long read(char* data, std::size_t size) = 0;

  // The Windows number of the last failure.
  virtual int last_error() const = 0;

  // What open() saw when it looked at the file; null where it doesn't look.
  virtual const File_Facts* facts() const { return nullptr; }
};

// The records of what lies on the machine's file systems, in this order:
//   BACKUP_SECURITY_DATA   owner, group and mode (security_descriptor.h)
//   BACKUP_EA_DATA         extended attributes (extended_attributes.h), if there are any
//   BACKUP_DATA            the bytes of a regular file
// A file with holes has a BACKUP_DATA of size 0 with the sparse attribute, then a
// BACKUP_SPARSE_BLOCK for each stretch of data and, where the file ends in a hole, an empty one at
// its end. A link isn't followed, and what is neither a directory nor a regular file is refused,
// without waiting for anybody at its other end. The size of each record is fixed when its head is
// given. Data goes from the system straight into the memory of who reads.
std::unique_ptr<Record_Source> file_records(Left_Out_Attribute left_out);

}  // namespace platform

// Windows has these names in no namespace.
using platform::_WIN32_STREAM_ID;
using platform::BACKUP_ALTERNATE_DATA;
using platform::BACKUP_DATA;
using platform::BACKUP_EA_DATA;
using platform::BACKUP_LINK;
using platform::BACKUP_OBJECT_ID;
using platform::BACKUP_PROPERTY_DATA;
using platform::BACKUP_REPARSE_DATA;
using platform::BACKUP_SECURITY_DATA;
using platform::BACKUP_SPARSE_BLOCK;
using platform::STREAM_CONTAINS_SECURITY;
using platform::STREAM_MODIFIED_WHEN_READ;
using platform::STREAM_SPARSE_ATTRIBUTE;
using platform::WIN32_STREAM_ID;
