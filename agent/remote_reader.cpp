#include "agent/remote_reader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace agent {
namespace {

constexpr std::size_t most_stretches = 8;
constexpr unsigned long long shortest = 0x10000;       // the least that a look fetches
constexpr unsigned long long longest_look = 0x100000;  // beyond it a process of its own is quicker
constexpr unsigned long long growth = 16;              // of a stream behind another
constexpr unsigned long long longest = 0x40000000;     // 1 GiB
constexpr unsigned long long widest_gap = 0x200000;    // read over rather than begin anew
constexpr unsigned long long kept_behind = 0x200000;   // for reads that overlap
constexpr std::size_t chunk = 0x40000;

}  // namespace

long long Remote_Reader::read_at(unsigned long long offset, char* data, unsigned long long size) {
  if (offset >= size_) return 0;
  size = std::min(size, size_ - offset);
  Stretch& stretch = stretch_at(offset);
  if (!extend(stretch, offset + size)) {
    errno = EIO;
    return -1;
  }
  std::memcpy(data, stretch.kept.data() + (offset - stretch.start), size);
  forget(stretch, offset);
  return static_cast<long long>(size);
}

Remote_Reader::Stretch& Remote_Reader::stretch_at(unsigned long long offset) {
  const auto found = std::find_if(stretches_.begin(), stretches_.end(), [&](const Stretch& each) {
    return each.start <= offset && offset <= each.end() + widest_gap;
  });
  if (found != stretches_.end()) {
    stretches_.splice(stretches_.begin(), stretches_, found);
    return stretches_.front();
  }
  // Only the stream that was read last stays open beside the new place.
  for (auto each = stretches_.begin(); each != stretches_.end();) {
    const bool drop = each != stretches_.begin() && each->kept.size() > longest_look;
    if (each != stretches_.begin()) each->stream.reset();
    each = drop ? stretches_.erase(each) : std::next(each);
  }
  if (stretches_.size() == most_stretches) stretches_.pop_back();
  stretches_.emplace_front();
  stretches_.front().start = offset;
  stretches_.front().next_length = shortest;
  return stretches_.front();
}

bool Remote_Reader::extend(Stretch& stretch, unsigned long long to) {
  int tries = 0;
  while (stretch.end() < to) {
    std::string error;
    if (advance(stretch, to, error)) {
      tries = 0;
      continue;
    }
    stretch.stream.reset();
    if (rclone_.wait_for_retry(tries)) continue;
    note_trouble(name_ + ": " + error);
    return false;
  }
  return true;
}

bool Remote_Reader::advance(Stretch& stretch, unsigned long long to, std::string& error) {
  if (stretch.stream != nullptr) return take(stretch, error);
  const unsigned long long from = stretch.end();
  const unsigned long long length =
      std::min(std::max(to - from, stretch.next_length), size_ - from);
  stretch.next_length = std::min(std::max(growth * length, longest_look), longest);
  if (length <= longest_look) return look(stretch, length, error);
  return begin_stream(stretch, length, error) && take(stretch, error);
}

// What came ahead of a failure is kept.
bool Remote_Reader::look(Stretch& stretch, unsigned long long length, std::string& error) {
  const unsigned long long before = stretch.end();
  const Call_End end = rclone_.get(name_, before, length, stretch.kept, error);
  if (end == Call_End::done && stretch.end() == before) error = "rclone: the object ends too early";
  return stretch.end() != before;
}

bool Remote_Reader::begin_stream(Stretch& stretch, unsigned long long length, std::string& error) {
  stretch.stream = rclone_.start_reading(name_, stretch.end(), length, error);
  stretch.stream_end = stretch.end() + length;
  return stretch.stream != nullptr;
}

// Takes what the stream has to give.
bool Remote_Reader::take(Stretch& stretch, std::string& error) {
  const std::size_t before = stretch.kept.size();
  const auto room = static_cast<std::size_t>(
      std::min<unsigned long long>(chunk, stretch.stream_end - stretch.end()));
  stretch.kept.resize(before + room);
  const long long count = stretch.stream->read(stretch.kept.data() + before, room);
  stretch.kept.resize(before + static_cast<std::size_t>(std::max(count, 0LL)));
  if (count < 0) error = rclone_.broken(*stretch.stream);
  if (count == 0) {
    rclone_.finish(*stretch.stream, error);
    if (error.empty()) error = "rclone: the object ends too early";
  }
  if (count <= 0) return false;
  rclone_.note_progress();
  if (stretch.end() == stretch.stream_end) stretch.stream.reset();
  return true;
}

void Remote_Reader::forget(Stretch& stretch, unsigned long long before) {
  if (stretch.kept.size() < 4 * kept_behind || before < stretch.start + kept_behind) return;
  const unsigned long long dropped = before - kept_behind - stretch.start;
  stretch.kept.erase(0, static_cast<std::size_t>(dropped));
  stretch.start += dropped;
}

}  // namespace agent
