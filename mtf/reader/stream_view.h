// Headers of data streams and of their compression frames, read from their published layout.
#pragma once

#include <cstddef>
#include <string>

#include "mtf/common/format_words.h"

namespace MTF {

// Bytes in front of the data of a sparse stream: the place of the data in the file.
constexpr std::size_t sparse_offset_size = 8;
// Bytes of data in a CSUM stream.
constexpr std::size_t checksum_size = 4;

struct Stream_Header {
  unsigned int id;
  unsigned short file_system_attributes;
  unsigned short media_format_attributes;
  unsigned long long length;  // bytes of data before compression
  unsigned short compression;
  bool intact;  // the checksum is right

  bool is(Media_Format_Attribute bit) const { return (media_format_attributes & bit) != 0; }
};

// Reads the header at `bytes`, which must hold `stream_header_size` bytes.
Stream_Header read_stream_header(const char* bytes);

// True for a Stream_Id (mtf/common/format_words.h).
bool known_stream(unsigned int id);

// The id's letters, or the number in hexadecimal.
std::string stream_word(unsigned int id);

struct Frame_Header {
  bool intact;  // the mark and the checksum are right
  unsigned short media_format_attributes;
  unsigned long long remaining_stream_size;
  unsigned int uncompressed_size;
  unsigned int compressed_size;
  unsigned char sequence_number;
};

// Reads the header at `bytes`, which must hold `frame_header_size` bytes.
Frame_Header read_frame_header(const char* bytes);

}  // namespace MTF
