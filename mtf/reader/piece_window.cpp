#include "mtf/reader/piece_window.h"

#include <algorithm>

#include "platform/read_ahead.h"

namespace MTF {
namespace {

// A view that starts at most this far behind the bytes in the buffer counts as reading on.
constexpr unsigned long long longest_step = 0x100000;
// How far ahead the reader is asked to read then.
constexpr unsigned long long ahead_size = 0x800000;

}  // namespace

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
  const bool goes_on =
      filled_ != 0 && offset >= start_ && offset - start_ <= filled_ + longest_step;
  start_ = offset;
  filled_ = 0;
  if (length == 0) return true;
  const long long got = reader_.read_at(offset, buffer_.data(), length);
  if (got < 0 || static_cast<unsigned long long>(got) != length) return false;
  filled_ = length;
  ask_ahead(goes_on);
  return true;
}

// Asking costs little, but nothing is to be paid for a piece that is in the cache.
void Piece_Window::ask_ahead(bool goes_on) {
  const unsigned long long end = start_ + filled_;
  const bool is_due = asked_ < end + ahead_size / 2 && asked_ < size_;
  if (!goes_on) asked_ = 0;
  if (goes_on && is_cold_ && !is_due) return;
  if (goes_on && is_cold_) {
    const unsigned long long from = std::max(asked_, end);
    asked_ = std::min(end + ahead_size, size_);
    if (from < asked_) reader_.read_ahead(from, asked_ - from);
  }
  const unsigned long long reads = platform::disk_reads_of_thread();
  is_cold_ = goes_on && reads != disk_reads_;
  disk_reads_ = reads;
}

}  // namespace MTF
