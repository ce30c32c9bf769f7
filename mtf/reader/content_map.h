// Where the content of a file stands on its media.
#pragma once

#include <cstddef>
#include <vector>

#include "mtf/reader/stream_view.h"

namespace MTF {

// A compression frame, from its header on.
struct Frame_Place {
  unsigned long long position;
  unsigned long long offset;  // of its first byte in the expanded data of the stream
};

// A stretch of a file that stands in one stream.
struct Content_Range {
  unsigned long long offset;    // in the file
  unsigned long long length;    // of the content
  unsigned long long position;  // of the stream's data
  Stream_Header header;
  std::size_t prefix;               // bytes of the stream's data in front of the content
  std::vector<Frame_Place> frames;  // some of the frames, rising; the first one isn't among them
};

// Filled stream by stream, then looked into. Its memory is bounded.
class Content_Map {
 public:
  // Starts with a stream whose data stands at `position`.
  void open_range(const Stream_Header& header, unsigned long long position, std::size_t prefix);

  // Notes a frame of the open stream; does nothing while none is open.
  void add_frame(unsigned long long position, unsigned long long offset);

  // Ends the open stream, whose content belongs at `offset` of the file.
  void close_range(unsigned long long offset);

  // Sorts the ranges. False if there were too many, or if two of them overlap.
  bool finish();

  // The range that holds the byte at `offset`, or the next one behind it; null if there is none.
  const Content_Range* find(unsigned long long offset) const;

 private:
  std::vector<Content_Range> ranges_;  // none is empty
  Content_Range open_{};
  bool is_open_ = false;
  bool too_many_ = false;
  std::size_t frames_ = 0;       // noted in all ranges
  unsigned long long seen_ = 0;  // frames of the range that is open
  unsigned long long step_ = 1;  // one frame in this many is noted
};

}  // namespace MTF
