#include "mtf/reader/viewed_file.h"

#include <algorithm>
#include <cstring>

#include "mtf/reader/content_reader.h"
#include "mtf/reader/job_viewer.h"
#include "mtf/reader/stream_data.h"
#include "services/compression.h"

namespace MTF {
namespace {

constexpr unsigned long long small_size = 0x40000;

}  // namespace

Viewed_File::Viewed_File(Job_Viewer& view, View_Tree::Number number)
    : view_(view), number_(number), size_(view.tree().node(number).size) {
  // A file with holes isn't held as bytes, since its holes must be told.
  is_small_ = size_ <= small_size && view.tree().node(number).space * space_unit >= size_;
}

long long Viewed_File::read(unsigned long long offset, char* data, std::size_t size,
                            const std::function<bool()>& go_on, std::string& why) {
  why.clear();
  if (offset >= size_) return 0;
  if (!check(go_on, why)) return -1;
  size = static_cast<std::size_t>(std::min<unsigned long long>(size, size_ - offset));
  if (is_small_) {
    std::memcpy(data, small_.data() + offset, size);
    return static_cast<long long>(size);
  }
  std::size_t done = 0;
  while (done < size) {
    const unsigned long long at = offset + done;
    const Content_Range* range = map_.find(at);
    const unsigned long long next = range == nullptr ? size_ : range->offset;
    if (at < next) {
      const std::size_t hole = std::min<unsigned long long>(next - at, size - done);
      std::memset(data + done, 0, hole);
      done += hole;
      continue;
    }
    const long long got = read_range(*range, at - next, data + done, size - done, why);
    if (got <= 0) return -1;
    done += static_cast<std::size_t>(got);
  }
  return static_cast<long long>(done);
}

bool Viewed_File::seek(unsigned long long offset, bool hole, const std::function<bool()>& go_on,
                       unsigned long long& out, std::string& why) {
  why.clear();
  out = offset;
  if (!check(go_on, why)) return false;
  if (is_small_) {
    if (hole) out = size_;
    return true;
  }
  const Content_Range* range = map_.find(out);
  if (!hole) {
    out = range == nullptr ? size_ : std::max(out, range->offset);
    return true;
  }
  for (; range != nullptr && range->offset <= out; range = map_.find(out)) {
    out = range->offset + range->length;
  }
  return true;
}

bool Viewed_File::check(const std::function<bool()>& go_on, std::string& why) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!checked_) checked_ = size_ == 0 || (is_small_ ? load_small(why) : load_map(go_on, why));
  return checked_;
}

bool Viewed_File::load_small(std::string& why) {
  Media_Block block;
  const View_Medias::Loan media = view_.find_block(number_, block, why);
  if (media == nullptr) return false;
  small_.assign(static_cast<std::size_t>(size_), '\0');
  const Content_Sink sink = [this](unsigned long long offset, const char* data, std::size_t size) {
    if (offset > size_ || size > size_ - offset) return false;
    std::memcpy(&small_[static_cast<std::size_t>(offset)], data, size);
    return true;
  };
  Content content;
  const bool read = Content_Reader(*media, sink).read(block, content, why);
  if (read && content.length == size_) return true;
  if (why.empty()) why = "its content has another length than its block says";
  return false;
}

bool Viewed_File::load_map(const std::function<bool()>& go_on, std::string& why) {
  Media_Block block;
  const View_Medias::Loan media = view_.find_block(number_, block, why);
  if (media == nullptr) return false;
  const Content_Sink no_sink;
  Content content;
  map_ = {};
  if (!Content_Reader(*media, no_sink).map(block, content, map_, go_on, why)) return false;
  if (content.length == size_) return true;
  why = "its content has another length than its block says";
  return false;
}

// Reads from byte `at` of a range, up to its end or that of a frame.
long long Viewed_File::read_range(const Content_Range& range, unsigned long long at, char* data,
                                  std::size_t size, std::string& why) {
  const View_Node& node = view_.tree().node(number_);
  const View_Medias::Loan media = view_.medias_.lend(node.seq, node.channel, why);
  if (media == nullptr) return -1;
  size = static_cast<std::size_t>(std::min<unsigned long long>(size, range.length - at));
  at += range.prefix;
  if (!range.header.is(mf_compressed)) {
    const long long got = media->window().reader().read_at(range.position + at, data, size);
    if (got == static_cast<long long>(size)) return got;
    why = "at " + std::to_string(range.position + at) + ": can't be read";
    return -1;
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!load_frame(media->window(), range, at, why)) return -1;
  const auto from = static_cast<std::size_t>(at - frame_.offset);
  size = std::min(size, frame_.data.size() - from);
  std::memcpy(data, frame_.data.data() + from, size);
  return static_cast<long long>(size);
}

// Brings the frame that holds byte `at` of a stream's data into frame_, from the nearest known
// place in front of it.
bool Viewed_File::load_frame(Piece_Window& window, const Content_Range& range,
                             unsigned long long at, std::string& why) {
  const unsigned long long behind = frame_.offset + frame_.data.size();
  const bool here = frame_.range == &range && at >= frame_.offset;
  if (here && at < behind) return true;
  Frame_Place place{range.position, 0};
  const auto next =
      std::partition_point(range.frames.begin(), range.frames.end(),
                           [at](const Frame_Place& each) { return each.offset <= at; });
  if (next != range.frames.begin()) place = *(next - 1);
  if (here && behind > place.offset) place = {frame_.end, behind};
  for (;;) {
    const char* bytes = window.view(place.position, frame_header_size);
    const Frame_Header header = bytes == nullptr ? Frame_Header{} : read_frame_header(bytes);
    if (const char* fault = frame_fault(header, range.header.length - place.offset)) {
      return why = "at " + std::to_string(place.position) + ": " + fault, false;
    }
    const unsigned long long end = place.position + frame_header_size + header.compressed_size;
    if (at - place.offset < header.uncompressed_size) {
      frame_.range = &range;
      frame_.offset = place.offset;
      frame_.end = end;
      return expand(window, place.position, header, range.header.compression, why);
    }
    place = {end, place.offset + header.uncompressed_size};
  }
}

bool Viewed_File::expand(Piece_Window& window, unsigned long long position,
                         const Frame_Header& header, unsigned short method, std::string& why) {
  const char* stored = window.view(position + frame_header_size, header.compressed_size);
  frame_.data.resize(header.uncompressed_size);
  if (stored != nullptr && header.compressed_size == header.uncompressed_size) {
    std::memcpy(frame_.data.data(), stored, frame_.data.size());
    return true;
  }
  if (stored != nullptr &&
      decompress(method, stored, header.compressed_size, frame_.data.data(), frame_.data.size())) {
    return true;
  }
  frame_.range = nullptr;
  why = "at " + std::to_string(position) + ": compression frame can't be expanded";
  return false;
}

}  // namespace MTF
