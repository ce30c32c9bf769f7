#include "mtf/reader/stream_view.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "services/bytes.h"
#include "services/checksum.h"

namespace MTF {
namespace {

constexpr unsigned int stream_checksum_at = 20;
constexpr unsigned int frame_checksum_at = 22;

constexpr unsigned int known_ids[] = {
    stream_stan, stream_spar, stream_spad, stream_nacl, stream_ntea, stream_ntoi,
    stream_ntpr, stream_ntrp, stream_adat, stream_csum, stream_fnam, stream_pnam,
    stream_stat, stream_ctex, stream_link, stream_tfdd, stream_tsmp, stream_meta,
};

}  // namespace

Stream_Header read_stream_header(const char* bytes) {
  Stream_Header header;
  header.id = load_le<unsigned int>(bytes);
  header.file_system_attributes = load_le<unsigned short>(bytes + 4);
  header.media_format_attributes = load_le<unsigned short>(bytes + 6);
  header.length = load_le<unsigned long long>(bytes + 8);
  header.compression = load_le<unsigned short>(bytes + 18);
  header.intact = load_le<unsigned short>(bytes + stream_checksum_at) ==
                  header_checksum(bytes, stream_checksum_at);
  return header;
}

bool known_stream(unsigned int id) {
  return std::find(std::begin(known_ids), std::end(known_ids), id) != std::end(known_ids);
}

std::string stream_word(unsigned int id) {
  if (!known_stream(id)) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%X", id);
    return text;
  }
  std::string word;
  for (int shift = 0; shift < 32; shift += 8) word += static_cast<char>(id >> shift & 0xFF);
  return word;
}

Frame_Header read_frame_header(const char* bytes) {
  Frame_Header header;
  header.media_format_attributes = load_le<unsigned short>(bytes + 2);
  header.remaining_stream_size = load_le<unsigned long long>(bytes + 4);
  header.uncompressed_size = load_le<unsigned int>(bytes + 12);
  header.compressed_size = load_le<unsigned int>(bytes + 16);
  header.sequence_number = load_le<unsigned char>(bytes + 20);
  header.intact = load_le<unsigned short>(bytes) == frame_mark &&
                  load_le<unsigned short>(bytes + frame_checksum_at) ==
                      header_checksum(bytes, frame_checksum_at);
  return header;
}

}  // namespace MTF
