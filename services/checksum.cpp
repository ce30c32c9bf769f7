#include "services/checksum.h"

#include "services/bytes.h"

namespace MTF {
namespace {

// Folds the data into 8 bytes: byte i goes to byte i mod 8. Four independent lanes let the compiler
// use the widest registers that it has.
std::uint64_t fold(const char* data, std::size_t size) {
  std::uint64_t lane[4] = {0, 0, 0, 0};
  std::size_t at = 0;
  for (; at + 32 <= size; at += 32) {
    for (int i = 0; i < 4; ++i) lane[i] ^= load_le<std::uint64_t>(data + at + 8 * i);
  }
  std::uint64_t sum = lane[0] ^ lane[1] ^ lane[2] ^ lane[3];
  for (; at + 8 <= size; at += 8) sum ^= load_le<std::uint64_t>(data + at);
  for (std::size_t i = at; i < size; ++i) {
    sum ^= std::uint64_t{static_cast<unsigned char>(data[i])} << (8 * (i - at));
  }
  return sum;
}

std::uint32_t fold32(const char* data, std::size_t size) {
  const std::uint64_t sum = fold(data, size);
  return static_cast<std::uint32_t>(sum ^ (sum >> 32));
}

}  // namespace

std::uint16_t header_checksum(const void* data, std::size_t size) {
  const std::uint32_t sum = fold32(static_cast<const char*>(data), size);
  return static_cast<std::uint16_t>(sum ^ (sum >> 16));
}

void Checksum_Calculator::reset() {
  checksum_ = 0;
  phase_ = 0;
}

void Checksum_Calculator::calc(const char* data, unsigned long long size, bool final) {
  if (final || size == 0) return;
  const std::uint32_t sum = fold32(data, size);
  const unsigned int bits = 8 * phase_;
  checksum_ ^= bits == 0 ? sum : (sum << bits) | (sum >> (32 - bits));
  phase_ = static_cast<unsigned int>((phase_ + size) % 4);
}

}  // namespace MTF
