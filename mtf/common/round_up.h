// The rounding behind every alignment of the format.
#pragma once

namespace MTF {

// The smallest multiple of `a`, a power of two, that is not below `value`, in the width of `value`.
template <class T>
constexpr T round_up(T value, T a) {
  return static_cast<T>((value + a - 1) & ~static_cast<T>(a - 1));
}

}  // namespace MTF
