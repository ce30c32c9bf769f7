// Integers of the records that this layer makes, as little-endian bytes.
#pragma once

#include <cstddef>
#include <string>

namespace platform {

// Stores the sizeof(T) bytes of the unsigned integer `value`.
template <class T>
inline void store_little_endian(char* to, T value) {
  for (std::size_t i = 0; i < sizeof value; ++i) to[i] = static_cast<char>(value >> (8 * i));
}

template <class T>
inline T load_little_endian(const char* from) {
  T value = 0;
  for (std::size_t i = 0; i < sizeof value; ++i) {
    value = static_cast<T>(value | static_cast<T>(static_cast<unsigned char>(from[i])) << (8 * i));
  }
  return value;
}

template <class T>
inline void append_little_endian(std::string& to, T value) {
  char bytes[sizeof value];
  store_little_endian(bytes, value);
  to.append(bytes, sizeof bytes);
}

}  // namespace platform
