// Words for what stands in blocks as numbers.
#pragma once

#include <string>

namespace MTF {

// Block types: four letters read as a little-endian word. SLNK alone stands reversed on a media.
enum Block_Type : unsigned int {
  block_tape = 0x45504154,
  block_sset = 0x54455353,
  block_volb = 0x424C4F56,
  block_dirb = 0x42524944,
  block_file = 0x454C4946,
  block_pdat = 0x54414450,
  block_hlnk = 0x4B4E4C48,
  block_devb = 0x42564544,
  block_slnk = 0x534C4E4B,
  block_cfil = 0x4C494643,
  block_eset = 0x54455345,
  block_eotm = 0x4D544F45,
  block_sfmb = 0x424D4653,
  block_fend = 0x444E4546,
};

// True for what belongs to a directory and counts as a file.
inline bool is_file_like(unsigned int type) {
  return type == block_file || type == block_slnk || type == block_hlnk || type == block_devb;
}

// String types of a block.
enum String_Type : unsigned char {
  string_none = 0,
  string_bytes = 1,    // carried byte for byte
  string_unicode = 2,  // UTF-16, little-endian
};

// Bits of the corrupt attributes of a CFIL block.
enum Corrupt_Attribute : unsigned int {
  corrupt_length_change = 0x10000,
  corrupt_unreadable = 0x20000,
  corrupt_in_use = 0x80000,
};

// The words for the corrupt attributes of a file.
std::string corrupt_attr(unsigned int attributes);

// The name of a block type, for a log line.
std::string fdd_entry_type_string(unsigned int type);

// Turns the string at [begin, end) of a block into UTF-8. Type 1 passes its bytes through. False
// for a type that isn't known.
bool mtf_string_to_utf8(const void* begin, const void* end, unsigned char string_type,
                        std::string& out);

}  // namespace MTF
