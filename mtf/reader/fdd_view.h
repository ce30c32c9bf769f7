// The entries of the streams of a media based catalog of type 1, read from their published layout.
#pragma once

#include <string_view>

namespace MTF {

// MTF_FDD_HDR, in front of every entry of a TFDD stream.
constexpr unsigned int fdd_header_size = 36;
namespace fdd_at {
enum { length = 0, type = 2, media_sequence_number = 6, format_logical_address = 12 };
enum { displayable_size = 20, link = 28, string_type = 34, unused = 35 };
}  // namespace fdd_at

constexpr unsigned int fdd_volume_size = 61;  // bytes in front of the strings of a VOLB entry
namespace fdd_volume_at {
enum { device_name = 40, os_data = 52 };
}
constexpr unsigned int fdd_named_size = 68;  // the same of every other entry
namespace fdd_named_at {
enum { last_modification_date = 36, name = 60, os_data = 64 };
}

constexpr unsigned int set_map_header_size = 8;
// MTF_SM_ENTRY.
constexpr unsigned int sm_entry_size = 91;
namespace sm_at {
enum { media_sequence_number = 2, fdd_pba = 20, format_logical_address = 32, directories = 40 };
enum { files = 44, corrupt_files = 48, displayable_size = 52, volumes = 60 };
enum { fdd_media_sequence_number = 28 };
}  // namespace sm_at

// One entry of a TFDD stream, over bytes that somebody else holds.
struct FDD_View {
  unsigned short length;
  unsigned int type;
  unsigned short seq;
  unsigned long long address;
  unsigned long long size;
  unsigned char string_type;
  std::string_view date;  // of the last modification, 5 bytes; empty for a VOLB
  std::string_view name;
};

// Reads the entry at the start of `bytes`, which may hold more. False if it is no whole entry of a
// block with a name.
bool read_fdd_entry(std::string_view bytes, FDD_View& entry);

}  // namespace MTF
