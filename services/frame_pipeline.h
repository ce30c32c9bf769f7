// Compression of several frames at once.
#pragma once

#include <memory>
#include <vector>

#include "services/compression_ring.h"

namespace MTF {

// Frames go in and come out in one order; in between, threads of its own and the caller's compress
// them. Used by one thread. At most two frames for each thread are held at a time.
class Frame_Pipeline {
 public:
  struct Frame {
    Buffer data{8};  // as it was put in
    Buffer compressed{8};
    bool failed = false;  // to compress
  };

  // `threads` compress, the caller's among them: from 2 on, and no more than 16. Null, with errno,
  // where there is no memory, no thread, or no compressor for `method` and `level`.
  static std::unique_ptr<Frame_Pipeline> create(unsigned short method, int level, int threads);

  bool is_empty() const { return ring_.size() == 0; }
  bool is_full() const { return ring_.size() == frames_.size(); }

  // Takes a copy of the content of `data`; false without memory. The pipeline must not be full.
  bool put(const Buffer& data);
  // The oldest frame, compressed or failed; it stays until pop(). Until it is there the caller's
  // thread works on frames that nobody has begun. The pipeline must not be empty.
  const Frame& front();
  void pop() { ring_.remove_oldest(); }
  // Drops all frames.
  void clear() { ring_.clear(); }

 private:
  explicit Frame_Pipeline(std::size_t frames);

  std::vector<Frame> frames_;
  Compression_Ring ring_;  // ends ahead of the frames that it works on
};

}  // namespace MTF
