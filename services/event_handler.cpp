#include "services/event_handler.h"

#include <algorithm>
#include <new>

#include "services/json_spirit.h"

namespace MTF {

struct Event_Handler::Channel_Total {
  std::atomic<unsigned long long> done{0};
  std::atomic<unsigned long long> total{0};
  std::atomic<unsigned long long> count{0};
  std::atomic<int> percent{0};
};

Event_Handler::Event_Handler() {
  set_channels(1);
}

Event_Handler::~Event_Handler() = default;

// Channel numbers run from 0 in a job of one channel and from 1 to n in a job of n. A number that
// no job can have goes uncounted: the job fails when its channels are made.
void Event_Handler::set_channels(unsigned long long n) {
  constexpr unsigned long long most = 1U << 24;
  channels_.reset(n < most ? new (std::nothrow) Channel_Total[n + 1] : nullptr);
  channel_count_ = channels_ != nullptr ? n + 1 : 0;
}

void Event_Handler::add_size(unsigned long long channel, unsigned long long bytes) {
  if (channel < channel_count_) {
    channels_[channel].done.fetch_add(bytes, std::memory_order_relaxed);
  }
}

void Event_Handler::add_processed_count(unsigned long long n) {
  processed_.fetch_add(n, std::memory_order_relaxed);
}

void Event_Handler::total_size(unsigned long long channel, unsigned long long size, int percent) {
  if (channel >= channel_count_) return;
  channels_[channel].total.store(size, std::memory_order_relaxed);
  channels_[channel].percent.store(percent, std::memory_order_relaxed);
}

void Event_Handler::refresh_total_count(unsigned long long channel, unsigned long long count,
                                        int percent) {
  if (channel >= channel_count_) return;
  channels_[channel].count.store(count, std::memory_order_relaxed);
  channels_[channel].percent.store(percent, std::memory_order_relaxed);
}

Event_Handler::Progress Event_Handler::progress() const {
  Progress now{};
  int slowest = 100;
  for (unsigned long long i = 0; i < channel_count_; ++i) {
    now.done_size += channels_[i].done.load(std::memory_order_relaxed);
    now.total_size += channels_[i].total.load(std::memory_order_relaxed);
    now.total_count += channels_[i].count.load(std::memory_order_relaxed);
    const int percent = channels_[i].percent.load(std::memory_order_relaxed);
    if (i == 0) now.percent = percent;
    if (i > 0) slowest = std::min(slowest, percent);
  }
  now.done_count = processed_.load(std::memory_order_relaxed);
  // The listing is that of channel 0, or each other channel has one.
  if (channel_count_ > 1) now.percent = std::max(now.percent, slowest);
  return now;
}

}  // namespace MTF
