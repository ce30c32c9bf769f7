// File attributes in the shape of Windows, which the format's blocks are filled from.
#pragma once

#include <string>

#include "platform/stat.h"

namespace platform {

// Steps of 100 nanoseconds since 1601.
struct FILETIME {
  unsigned int dwLowDateTime;
  unsigned int dwHighDateTime;
};

struct WIN32_FILE_ATTRIBUTE_DATA {
  unsigned int dwFileAttributes;
  FILETIME ftCreationTime;  // birth, or where it isn't known the earlier of change and modification
  FILETIME ftLastAccessTime;
  FILETIME ftLastWriteTime;
  unsigned int nFileSizeHigh;
  unsigned int nFileSizeLow;
};

constexpr int GetFileExInfoStandard = 0;

constexpr unsigned int FILE_ATTRIBUTE_READONLY = 0x1;  // nobody may write
constexpr unsigned int FILE_ATTRIBUTE_HIDDEN = 0x2;    // a name with a leading dot
constexpr unsigned int FILE_ATTRIBUTE_SYSTEM = 0x4;    // never given
constexpr unsigned int FILE_ATTRIBUTE_DIRECTORY = 0x10;
constexpr unsigned int FILE_ATTRIBUTE_ARCHIVE = 0x20;       // every regular file
constexpr unsigned int FILE_ATTRIBUTE_SPARSE_FILE = 0x200;  // less allocated than the size says

// Fills the WIN32_FILE_ATTRIBUTE_DATA at `data` for a system path, for a link itself where it is
// one. False on failure, or for a level other than GetFileExInfoStandard; GetLastError() and errno
// tell why.
bool GetFileAttributesExW(const wchar_t* path, int level, void* data);

// The attributes of the directory at a system path. It is opened for this, and below a source the
// thread keeps it open (source_path.h), so that the files in it are reached by their names alone.
// False, with `data` untouched, where it can't be opened like this.
bool enter_directory(const wchar_t* path, WIN32_FILE_ATTRIBUTE_DATA& data);

// All that one look at a file tells.
struct File_Facts {
  _stat64 stat;
  WIN32_FILE_ATTRIBUTE_DATA data = {};
  long long allocated = 0;  // bytes on its disk
};

// Looks at an open file, whose native path gives its name. Returns 0 or the errno.
int examine(int fd, const std::string& native, File_Facts& out);

// The Windows number of this thread's last failure in this file.
unsigned long GetLastError();

// The seconds since 1970, rounded down.
long long file_time_seconds(const FILETIME& time);

// The bytes that the file at a system path takes on its disk, -1 on failure.
long long allocated_size(const wchar_t* path);

// The Windows number of an errno value; 0 for 0.
int windows_error(int errno_value);

}  // namespace platform

// Windows has these names in no namespace.
using platform::FILE_ATTRIBUTE_ARCHIVE;
using platform::FILE_ATTRIBUTE_DIRECTORY;
using platform::FILE_ATTRIBUTE_HIDDEN;
using platform::FILE_ATTRIBUTE_READONLY;
using platform::FILE_ATTRIBUTE_SPARSE_FILE;
using platform::FILE_ATTRIBUTE_SYSTEM;
using platform::FILETIME;
using platform::GetFileAttributesExW;
using platform::GetFileExInfoStandard;
using platform::GetLastError;
using platform::WIN32_FILE_ATTRIBUTE_DATA;
