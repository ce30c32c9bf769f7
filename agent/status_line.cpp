#include "agent/status_line.h"

#include <exception>
#include <new>
#include <utility>

#include "platform/terminal.h"

namespace agent {
namespace {

constexpr std::chrono::milliseconds tick{200};
constexpr std::chrono::seconds line_interval{5};

}  // namespace

Status_Line::Status_Line(Console& console, Text text)
    : console_(console),
      text_(std::move(text)),
      terminal_(platform::stderr_is_terminal()),
      start_(std::chrono::steady_clock::now()),
      next_line_(start_ + line_interval) {
  try {
    thread_ = std::thread([this] { run(); });
  } catch (const std::exception&) {
    // A machine without a thread or memory to spare can do without the line.
  }
}

Status_Line::~Status_Line() {
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    stop_ = true;
  }
  wake_.notify_one();
  if (thread_.joinable()) thread_.join();
  console_.status({});
}

void Status_Line::run() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!wake_.wait_for(lock, tick, [this] { return stop_; })) {
    try {
      show();
    } catch (const std::bad_alloc&) {
      // The next tick shows it.
    }
  }
}

void Status_Line::show() {
  const auto now = std::chrono::steady_clock::now();
  const std::string text = text_(std::chrono::duration<double>(now - start_).count());
  if (text.empty()) return;
  if (terminal_) {
    console_.status(text.substr(0, platform::stderr_width() - 1));
  } else if (now >= next_line_) {
    console_.note(text);
    next_line_ = now + line_interval;
  }
}

}  // namespace agent
