#include "mtf/reader/content_map.h"

#include <algorithm>
#include <utility>

namespace MTF {
namespace {

constexpr std::size_t most_ranges = 0x80000;
constexpr std::size_t most_frames = 0x10000;

}  // namespace

void Content_Map::open_range(const Stream_Header& header, unsigned long long position,
                             std::size_t prefix) {
  open_ = {0, header.length - prefix, position, header, prefix, {}};
  is_open_ = true;
  seen_ = 0;
}

// When there are too many, each range gives up every second one, and from then on only half as many
// are noted.
void Content_Map::add_frame(unsigned long long position, unsigned long long offset) {
  if (!is_open_ || offset == 0 || ++seen_ % step_ != 0) return;
  if (frames_ == most_frames) {
    step_ *= 2;
    for (std::size_t i = 0; i <= ranges_.size(); ++i) {
      std::vector<Frame_Place>& frames = (i < ranges_.size() ? ranges_[i] : open_).frames;
      const std::size_t left = frames.size() / 2;
      for (std::size_t each = 0; each < left; ++each) frames[each] = frames[2 * each + 1];
      frames_ -= frames.size() - left;
      frames.resize(left);
    }
  }
  open_.frames.push_back({position, offset});
  ++frames_;
}

void Content_Map::close_range(unsigned long long offset) {
  is_open_ = false;
  if (open_.length == 0) return;
  too_many_ = too_many_ || ranges_.size() == most_ranges;
  if (too_many_) return;
  open_.offset = offset;
  ranges_.push_back(std::move(open_));
}

bool Content_Map::finish() {
  std::stable_sort(
      ranges_.begin(), ranges_.end(),
      [](const Content_Range& a, const Content_Range& b) { return a.offset < b.offset; });
  for (std::size_t i = 1; i < ranges_.size(); ++i) {
    if (ranges_[i].offset - ranges_[i - 1].offset < ranges_[i - 1].length) return false;
  }
  return !too_many_;
}

const Content_Range* Content_Map::find(unsigned long long offset) const {
  const auto found = std::partition_point(
      ranges_.begin(), ranges_.end(),
      [offset](const Content_Range& range) { return range.offset + range.length <= offset; });
  return found == ranges_.end() ? nullptr : &*found;
}

}  // namespace MTF
