#include "services/compression_ring.h"

#include <algorithm>
#include <cerrno>
#include <exception>

#include "services/thread_start.h"

namespace MTF {

Compression_Ring::Compression_Ring(std::size_t places, Work work)
    : work_(std::move(work)), states_(places, State::done) {}

Compression_Ring::~Compression_Ring() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    is_stopping_ = true;
  }
  added_work_.notify_all();
  for (std::thread& thread : threads_) thread.join();
}

bool Compression_Ring::start(unsigned short method, int level, int threads) {
  try {
    for (int i = 0; i < threads; ++i) {
      compressors_.push_back(Compression_Factory::create(method, level));
      if (compressors_.back() == nullptr) return false;
    }
    const auto body = [this] { help(); };
    return start_threads(threads - 1, body, threads_);
  } catch (const std::exception&) {
    errno = ENOMEM;
    return false;
  }
}

void Compression_Ring::add(bool has_work) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    states_[next()] = has_work ? State::waiting : State::done;
    ++added_;
  }
  if (has_work) added_work_.notify_one();
}

void Compression_Ring::finish_oldest() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (states_[oldest()] != State::done) {
    if (begun_ != added_) {
      work_on_next(lock, *compressors_[0]);
    } else {
      done_work_.wait(lock);
    }
  }
}

void Compression_Ring::remove_oldest() {
  const std::lock_guard<std::mutex> lock(mutex_);
  ++removed_;
  begun_ = std::max(begun_, removed_);
}

void Compression_Ring::clear() {
  std::unique_lock<std::mutex> lock(mutex_);
  added_ = std::max(begun_, removed_);
  for (; removed_ != added_; ++removed_) {
    done_work_.wait(lock, [this] { return states_[oldest()] == State::done; });
  }
}

void Compression_Ring::help() {
  std::unique_lock<std::mutex> lock(mutex_);
  Compressor& compressor = *compressors_[++helpers_];
  for (;;) {
    added_work_.wait(lock, [this] { return is_stopping_ || begun_ != added_; });
    if (is_stopping_) return;
    work_on_next(lock, compressor);
  }
}

void Compression_Ring::work_on_next(std::unique_lock<std::mutex>& lock, Compressor& compressor) {
  const std::size_t next = place(begun_++);
  if (states_[next] != State::waiting) return;
  states_[next] = State::in_work;
  lock.unlock();
  work_(next, compressor);
  lock.lock();
  states_[next] = State::done;
  done_work_.notify_one();
}

}  // namespace MTF
