// The one place where integers of the format are read from bytes and written to bytes.
#pragma once

#include <cstddef>
#include <cstring>

namespace MTF {

// Reads the unsigned or signed integer T stored little-endian at `bytes`, which need not be aligned
// and must hold sizeof(T) bytes.
template <class T>
inline T load_le(const void* bytes) {
  T value;
  std::memcpy(&value, bytes, sizeof value);
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  unsigned char swapped[sizeof value];
  const auto* from = static_cast<const unsigned char*>(bytes);
  for (std::size_t i = 0; i < sizeof value; ++i) swapped[i] = from[sizeof value - 1 - i];
  std::memcpy(&value, swapped, sizeof value);
#endif
  return value;
}

// Writes `value` little-endian to the sizeof(T) bytes at `bytes`.
template <class T>
inline void store_le(void* bytes, T value) {
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  unsigned char swapped[sizeof value];
  const auto* from = reinterpret_cast<const unsigned char*>(&value);
  for (std::size_t i = 0; i < sizeof value; ++i) swapped[i] = from[sizeof value - 1 - i];
  std::memcpy(bytes, swapped, sizeof value);
#else
  std::memcpy(bytes, &value, sizeof value);
#endif
}

}  // namespace MTF
