// The progress of a running job on standard error.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "agent/console.h"
#include "services/event_handler.h"

namespace agent {

// "1234 files, 1.2 GiB, 45%, 210.0 MiB/s". Percent is left out until the listing knows how much
// there is, and the rate until there is time to divide by.
std::string progress_text(const MTF::Event_Handler::Progress& now, double seconds);

// Shows progress from a thread of its own while it lives: one line that is rewritten on a terminal,
// a line every few seconds elsewhere. Also tells, once, that a cancel has been heard.
class Progress {
 public:
  // `events` and `console` must outlive it. Without `shown` only the cancel is told.
  Progress(const MTF::Event_Handler& events, Console& console, bool shown);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

 private:
  void run();
  void tell_cancel();
  void show();

  const MTF::Event_Handler& events_;
  Console& console_;
  const bool shown_;
  const bool terminal_;
  const std::chrono::steady_clock::time_point start_;
  std::chrono::steady_clock::time_point next_line_;
  bool cancel_told_ = false;
  std::mutex mutex_;
  std::condition_variable wake_;
  bool stop_ = false;
  std::thread thread_;
};

}  // namespace agent
