#include "services/frame_pipeline.h"

#include <algorithm>
#include <cerrno>
#include <exception>

#include "services/thread_start.h"

namespace MTF {
namespace {

constexpr int most_threads = 16;
constexpr std::size_t frames_of_thread = 2;

}  // namespace

std::unique_ptr<Frame_Pipeline> Frame_Pipeline::create(unsigned short method, int level,
                                                       int threads) {
  try {
    std::vector<std::unique_ptr<Compressor>> compressors;
    for (int i = 0; i < std::min(threads, most_threads); ++i) {
      compressors.push_back(Compression_Factory::create(method, level));
      if (compressors.back() == nullptr) return nullptr;
    }
    std::unique_ptr<Frame_Pipeline> pipeline(new Frame_Pipeline(std::move(compressors)));
    const int helpers = static_cast<int>(pipeline->compressors_.size()) - 1;
    const auto body = [self = pipeline.get()] { self->work(); };
    if (start_threads(helpers, body, pipeline->threads_)) return pipeline;
  } catch (const std::exception&) {
    errno = ENOMEM;
  }
  return nullptr;
}

Frame_Pipeline::Frame_Pipeline(std::vector<std::unique_ptr<Compressor>> compressors)
    : frames_(compressors.size() * frames_of_thread), compressors_(std::move(compressors)) {}

Frame_Pipeline::~Frame_Pipeline() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  waiting_.notify_all();
  for (std::thread& thread : threads_) thread.join();
}

bool Frame_Pipeline::put(const Buffer& data) {
  Frame& next = frame(put_);
  if (!next.data.expand(data.size())) return false;
  next.data.copy(data.data(), data.size());
  next.data.size(data.size());
  next.state = Frame::waiting;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    ++put_;
  }
  waiting_.notify_one();
  return true;
}

const Frame_Pipeline::Frame& Frame_Pipeline::front() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!is_done(popped_)) {
    if (begun_ != put_) {
      compress_next(lock, *compressors_[0]);
    } else {
      done_.wait(lock);
    }
  }
  return frame(popped_);
}

void Frame_Pipeline::clear() {
  std::unique_lock<std::mutex> lock(mutex_);
  put_ = begun_;
  for (; popped_ != put_; ++popped_) {
    done_.wait(lock, [this] { return is_done(popped_); });
  }
}

void Frame_Pipeline::work() {
  std::unique_lock<std::mutex> lock(mutex_);
  Compressor& compressor = *compressors_[++helpers_];
  for (;;) {
    waiting_.wait(lock, [this] { return stopping_ || begun_ != put_; });
    if (stopping_) return;
    compress_next(lock, compressor);
  }
}

void Frame_Pipeline::compress_next(std::unique_lock<std::mutex>& lock, Compressor& compressor) {
  Frame& next = frame(begun_++);
  lock.unlock();
  const int size = compressor.compress(next.data, next.compressed);
  lock.lock();
  next.state = size < 0 ? Frame::failed : Frame::finished;
  done_.notify_one();
}

}  // namespace MTF
