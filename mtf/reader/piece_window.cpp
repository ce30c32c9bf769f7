#include "mtf/reader/piece_window.h"

#include <algorithm>

namespace MTF {

Piece_Window::Piece_Window(IRandom_Reader& reader, std::size_t capacity)
    : reader_(reader),
      size_(reader.size()),
      capacity_(static_cast<std::size_t>(std::min<unsigned long long>(capacity, size_))) {}

const char* Piece_Window::view(unsigned long long offset, std::size_t length) {
  if (!holds(offset, length) || length > max_view) return nullptr;
  const bool inside =
      offset >= start_ && offset - start_ <= filled_ && length <= filled_ - (offset - start_);
  if (!inside) {
    const auto ahead = static_cast<std::size_t>(
        std::min<unsigned long long>(std::max(length, capacity_), size_ - offset));
    // A bad spot further on must not hide what can still be read.
    if (!fill(offset, ahead) && !fill(offset, length)) return nullptr;
  }
  return buffer_.data() + (offset - start_);
}

bool Piece_Window::fill(unsigned long long offset, std::size_t length) {
  if (buffer_.size() < length) buffer_.resize(length);
  start_ = offset;
  filled_ = 0;
  if (length == 0) return true;
  const long long got = reader_.read_at(offset, buffer_.data(), length);
  if (got < 0 || static_cast<unsigned long long>(got) != length) return false;
  filled_ = length;
  return true;
}

}  // namespace MTF
