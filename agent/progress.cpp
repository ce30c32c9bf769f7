#include "agent/progress.h"

#include <algorithm>
#include <system_error>

#include "agent/text.h"
#include "platform/terminal.h"

namespace agent {
namespace {

constexpr std::chrono::milliseconds tick{200};
constexpr std::chrono::seconds line_interval{5};

// The share of the bytes that are done, no further than the listing has come.
int percent_of(const MTF::Event_Handler::Progress& now) {
  if (now.total_size == 0) return now.percent;
  const double done = 100.0 * static_cast<double>(now.done_size) / now.total_size;
  return std::min(now.percent, static_cast<int>(std::min(done, 100.0)));
}

}  // namespace

std::string progress_text(const MTF::Event_Handler::Progress& now, double seconds) {
  std::string text = count_text(now.done_count, "file") + ", " + size_text(now.done_size);
  if (now.percent > 0) text += ", " + std::to_string(percent_of(now)) + '%';
  if (seconds >= 1) {
    text += ", " + size_text(static_cast<unsigned long long>(now.done_size / seconds)) + "/s";
  }
  return text;
}

Progress::Progress(const MTF::Event_Handler& events, Console& console, bool shown)
    : events_(events),
      console_(console),
      shown_(shown),
      terminal_(platform::stderr_is_terminal()),
      start_(std::chrono::steady_clock::now()),
      next_line_(start_ + line_interval) {
  try {
    thread_ = std::thread([this] { run(); });
  } catch (const std::system_error&) {
    // A machine without a thread to spare can do without a progress line.
  }
}

Progress::~Progress() {
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    stop_ = true;
  }
  wake_.notify_one();
  if (thread_.joinable()) thread_.join();
  console_.status({});
}

void Progress::run() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!wake_.wait_for(lock, tick, [this] { return stop_; })) {
    tell_cancel();
    if (shown_) show();
  }
}

void Progress::tell_cancel() {
  if (cancel_told_ || !events_.is_canceling()) return;
  cancel_told_ = true;
  console_.note("stopping the job");
}

void Progress::show() {
  const auto now = std::chrono::steady_clock::now();
  if (!terminal_ && now < next_line_) return;
  const double seconds = std::chrono::duration<double>(now - start_).count();
  const std::string text = progress_text(events_.progress(), seconds);
  if (terminal_) {
    console_.status(text.substr(0, platform::stderr_width() - 1));
  } else {
    console_.note(text);
    next_line_ = now + line_interval;
  }
}

}  // namespace agent
