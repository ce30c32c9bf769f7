// Bytes written down as hex digits.
#pragma once

#include <cstdio>
#include <string>

#include "tests/support/media_bytes.h"

namespace test_support {

// The bytes of two digits each; spaces are for the eye.
inline std::string bytes_of(const std::string& hex) {
  std::string bytes, digits;
  for (char c : hex) {
    if (c != ' ') digits += c;
    if (digits.size() < 2) continue;
    bytes += static_cast<char>(std::stoi(digits, nullptr, 16));
    digits.clear();
  }
  return bytes;
}

inline std::string hex_of(const std::string& bytes) {
  std::string hex;
  for (char c : bytes) {
    char pair[3];
    std::snprintf(pair, sizeof pair, "%02X", static_cast<unsigned char>(c));
    hex += pair;
  }
  return hex;
}

// The digits of `hex` with the checksum over the first `at` bytes put there.
inline std::string sealed(const std::string& hex, std::size_t at) {
  std::string bytes = bytes_of(hex);
  test::set_le(bytes, at, test::xor16(bytes, 0, at), 2);
  return hex_of(bytes);
}

}  // namespace test_support
