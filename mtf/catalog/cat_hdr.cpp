#include "mtf/catalog/cat_hdr.h"

#include "services/checksum.h"

namespace MTF {
namespace {

constexpr unsigned int ino_low = 44;
constexpr unsigned int ino_high = 56;
constexpr unsigned int entry_checksum_offset = 62;

}  // namespace

unsigned long long Cat_Hdr::ino() const {
  return load_le<unsigned int>(bytes() + ino_low) |
         static_cast<unsigned long long>(load_le<unsigned int>(bytes() + ino_high)) << 32;
}

void Cat_Hdr::ino(unsigned long long value) {
  store_le(bytes() + ino_low, static_cast<unsigned int>(value));
  store_le(bytes() + ino_high, static_cast<unsigned int>(value >> 32));
}

unsigned short Cat_Hdr::calc_checksum() const {
  return header_checksum(bytes(), entry_checksum_offset);
}

}  // namespace MTF
