#include "services/frame_pipeline.h"

#include <algorithm>
#include <cerrno>
#include <exception>

namespace MTF {
namespace {

constexpr int most_threads = 16;
constexpr std::size_t frames_of_thread = 2;

}  // namespace

std::unique_ptr<Frame_Pipeline> Frame_Pipeline::create(unsigned short method, int level,
                                                       int threads) {
  const int count = std::min(threads, most_threads);
  try {
    std::unique_ptr<Frame_Pipeline> pipeline(
        new Frame_Pipeline(static_cast<std::size_t>(count) * frames_of_thread));
    if (pipeline->ring_.start(method, level, count)) return pipeline;
  } catch (const std::exception&) {
    errno = ENOMEM;
  }
  return nullptr;
}

Frame_Pipeline::Frame_Pipeline(std::size_t frames)
    : frames_(frames), ring_(frames, [this](std::size_t place, Compressor& compressor) {
        Frame& frame = frames_[place];
        frame.failed = compressor.compress(frame.data, frame.compressed) < 0;
      }) {}

bool Frame_Pipeline::put(const Buffer& data) {
  Frame& next = frames_[ring_.next()];
  if (!next.data.expand(data.size())) return false;
  next.data.copy(data.data(), data.size());
  next.data.size(data.size());
  ring_.add(true);
  return true;
}

const Frame_Pipeline::Frame& Frame_Pipeline::front() {
  ring_.finish_oldest();
  return frames_[ring_.oldest()];
}

}  // namespace MTF
