// Paths and attributes as the platform's Windows-shaped calls take and give them.
#pragma once

#include <string>

#include "platform/attributes.h"

namespace MTF {

// Room for most paths.
constexpr std::size_t usual_path_size = 260;

// Turns a system path into `out`, UTF-16 units, with `\\?\` in front where it is longer than 247
// units and doesn't begin with a backslash.
void to_wide_path(const std::string& path, std::wstring& out);

// A system path as the lines about the content of files show it: that in UTF-8.
std::string shown_path(const std::string& path);

// Asks for the attributes of `path`. On failure stores GetLastError() in `error`, logs a line at
// LM_ERROR and returns false; errno says why.
bool query_attributes(const std::wstring& path, platform::WIN32_FILE_ATTRIBUTE_DATA& data,
                      int& error);

// The bits of the platform's file attributes that `dirb_attributes` and `file_attributes` have.
unsigned int block_attributes(unsigned int file_attributes);

// The three dates that a directory's and a file's block share.
template <class Blk>
void set_dates(Blk& blk, const platform::WIN32_FILE_ATTRIBUTE_DATA& data) {
  blk.last_access_date(platform::file_time_seconds(data.ftLastAccessTime));
  blk.creation_date(platform::file_time_seconds(data.ftCreationTime));
  blk.last_modification_date(platform::file_time_seconds(data.ftLastWriteTime));
}

}  // namespace MTF
