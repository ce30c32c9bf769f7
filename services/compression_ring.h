// Work with a compressor that several threads do ahead.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "services/compression.h"

namespace MTF {

// Places that are filled, worked on and emptied in one order. Threads of its own do the work of
// those to come, and the caller's thread too wherever it would have to wait. One thread calls.
class Compression_Ring {
 public:
  // Does the work of a place, without exceptions. Several threads call it, for a place each.
  using Work = std::function<void(std::size_t place, Compressor& compressor)>;

  Compression_Ring(std::size_t places, Work work);
  // Waits for the threads, each of which ends with the place it is at.
  ~Compression_Ring();
  Compression_Ring(const Compression_Ring&) = delete;
  Compression_Ring& operator=(const Compression_Ring&) = delete;

  // `threads` work, the caller's among them. To be called once. False, with errno, where there is
  // no memory, no thread, or no compressor for `method` and `level`.
  bool start(unsigned short method, int level, int threads);

  std::size_t size() const { return static_cast<std::size_t>(added_ - removed_); }
  // The place that add() fills; there must be one.
  std::size_t next() const { return place(added_); }
  std::size_t oldest() const { return place(removed_); }

  // The next place is filled; there may be nothing to do for it.
  void add(bool has_work);
  // Returns when the oldest place is done.
  void finish_oldest();
  void remove_oldest();
  // Drops what nobody has begun, and waits for the rest.
  void clear();

 private:
  enum class State : char { waiting, in_work, done };

  std::size_t place(unsigned long long number) const { return number % states_.size(); }
  void help();
  void work_on_next(std::unique_lock<std::mutex>& lock, Compressor& compressor);

  const Work work_;
  std::vector<std::unique_ptr<Compressor>> compressors_;  // the first is the caller's
  std::vector<std::thread> threads_;
  std::mutex mutex_;
  std::condition_variable added_work_;
  std::condition_variable done_work_;
  // Numbers of what was added. The caller alone changes the first two, the first under the mutex,
  // as is the rest.
  unsigned long long added_ = 0;
  unsigned long long removed_ = 0;
  unsigned long long begun_ = 0;
  std::vector<State> states_;
  std::size_t helpers_ = 0;  // threads that have their compressor
  bool is_stopping_ = false;
};

}  // namespace MTF
