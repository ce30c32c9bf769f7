// Descriptor blocks of a media, read from their published layout (Microsoft Tape Format 1.00a and
// the additions of this system).
#pragma once

#include <string>
#include <string_view>

#include "mtf/common/format_words.h"
#include "services/bytes.h"
#include "services/date.h"
#include "services/text.h"

namespace MTF {

constexpr unsigned int header_checksum_offset = 50;
constexpr unsigned char expected_os_id = 14;

// The 52 bytes that every block starts with.
struct Block_Header {
  unsigned int type;
  unsigned int attributes;
  unsigned short offset_to_first_event;
  unsigned char os_id;
  unsigned long long displayable_size;
  unsigned long long format_logical_address;
  unsigned int control_block_id;
  unsigned char string_type;
  bool intact;  // the checksum is right
};

// Reads the header at `bytes`, which must hold `block_header_size` bytes.
Block_Header read_block_header(const char* bytes);

// Offsets in the blocks, from their first byte.
namespace tape_at {
enum { media_family_id = 52, tape_attributes = 56, media_sequence_number = 60 };
enum { soft_filemark_block_size = 64 };
enum { format_logical_block_size = 84, media_date = 88, mtf_major_version = 93 };
}  // namespace tape_at
namespace sset_at {
enum { sset_attributes = 52, compression_algorithm = 58, data_set_number = 62 };
enum { physical_block_address = 80 };
enum { media_write_date = 88, time_zone = 95 };
}  // namespace sset_at
namespace volb_at {
enum { volb_attributes = 52, device_name = 56 };
}
namespace dirb_at {
enum { last_modification_date = 56, directory_id = 76, directory_name = 80 };
}
namespace file_at {
enum { last_modification_date = 56, last_access_date = 71, directory_id = 76 };
enum { file_id = 80, file_name = 84 };
}  // namespace file_at
namespace cfil_at {
enum { cfil_attributes = 52, stream_offset = 64, stream_number = 72 };
}
namespace eset_at {
enum { eset_attributes = 52, corrupt_file_count = 56, fdd_pba = 60, sm_pba = 68 };
enum { data_set_number = 78, media_write_date = 80 };
}  // namespace eset_at
namespace eotm_at {
enum { last_eset_pba = 52 };
}
namespace sfmb_at {
enum { entries = 52, entries_used = 56, array = 60 };
}

// What a block of one type is like.
struct Block_Layout {
  unsigned int type;
  unsigned short fixed_size;   // bytes in front of its strings
  bool on_physical_grid;       // else on the grid of format logical blocks
  bool is_entry;               // stands inside a data set and takes a control block id
  unsigned char name;          // offset of the address of its name; 0 if it has none
  unsigned char addresses[4];  // offsets of the addresses of all its strings; 0 for none
};

// Null for a type that no block of the system has.
const Block_Layout* block_layout(unsigned int type);

// A block whose header is sound, over bytes that somebody else holds.
struct Block_View {
  Block_Header header;
  const Block_Layout* layout;
  std::string_view bytes;  // up to offset_to_first_event, which is at least the fixed size

  // The integer at `offset`, which must lie inside the fixed size.
  template <class T>
  T get(unsigned int offset) const {
    return load_le<T>(bytes.data() + offset);
  }
  // The five bytes of the date at `offset`.
  std::string_view date(unsigned int offset) const { return bytes.substr(offset, date_time_size); }
  // The string whose address stands at `offset`, empty where it is absent. False if it doesn't lie
  // between the fixed size and the end of the block.
  bool string(unsigned int offset, std::string_view& out) const;
};

// The name of a VOLB, DIRB or file-like block; empty where it stands in a stream or is damaged.
std::string_view block_name(const Block_View& block);

// Seconds since 1970 of the block's last modification; 0 for a type without that date.
long long block_mtime(const Block_View& block);

// True if a catalog that has the date `copy` says what a block with the date `original` says. A
// catalog may hold the date as it stands, or read and written again: "no date" is 1970 then.
bool same_date(std::string_view copy, std::string_view original);

// Text for a fault: the type's letters.
std::string block_word(unsigned int type);

}  // namespace MTF
