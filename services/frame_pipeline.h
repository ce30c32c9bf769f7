// Compression of several frames at once.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "services/compression.h"

namespace MTF {

// Frames go in and come out in one order; in between, threads of its own and the caller's compress
// them. Used by one thread. At most two frames for each thread are held at a time.
class Frame_Pipeline {
 public:
  struct Frame {
    enum State { waiting, finished, failed };

    Buffer data{8};        // as it was put in
    Buffer compressed{8};  // of a finished one
    State state = waiting;
  };

  // `threads` compress, the caller's among them: from 2 on, and no more than 16. Null, with errno,
  // where there is no memory, no thread, or no compressor for `method` and `level`.
  static std::unique_ptr<Frame_Pipeline> create(unsigned short method, int level, int threads);
  // Drops all frames and waits for the threads.
  ~Frame_Pipeline();
  Frame_Pipeline(const Frame_Pipeline&) = delete;
  Frame_Pipeline& operator=(const Frame_Pipeline&) = delete;

  bool is_empty() const { return put_ == popped_; }
  bool is_full() const { return put_ - popped_ == frames_.size(); }

  // Takes a copy of the content of `data`; false without memory. The pipeline must not be full.
  bool put(const Buffer& data);
  // The oldest frame, finished or failed; it stays until pop(). Until it is there the caller's
  // thread works on frames that nobody has begun. The pipeline must not be empty.
  const Frame& front();
  void pop() { ++popped_; }
  // Drops all frames.
  void clear();

 private:
  Frame_Pipeline(std::vector<std::unique_ptr<Compressor>> compressors);

  Frame& frame(unsigned long long number) { return frames_[number % frames_.size()]; }
  bool is_done(unsigned long long number) { return frame(number).state != Frame::waiting; }
  void work();
  void compress_next(std::unique_lock<std::mutex>& lock, Compressor& compressor);

  std::vector<Frame> frames_;  // a ring
  std::vector<std::unique_ptr<Compressor>> compressors_;
  std::vector<std::thread> threads_;
  std::mutex mutex_;
  std::condition_variable waiting_;
  std::condition_variable done_;
  // Numbers of frames. The caller alone changes the first two; the rest is under the mutex, as is
  // put_ where it changes.
  unsigned long long put_ = 0;
  unsigned long long popped_ = 0;
  unsigned long long begun_ = 0;
  std::size_t helpers_ = 0;  // threads that have their compressor
  bool stopping_ = false;
};

}  // namespace MTF
