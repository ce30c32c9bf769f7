// A line on standard error that tells how far long work has come.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "agent/console.h"

namespace agent {

// Asks for its text from a thread of its own while it lives, and shows it: one line that is
// rewritten on a terminal, a line every few seconds elsewhere.
class Status_Line {
 public:
  // Called several times a second, with the seconds since the start. An empty text shows nothing.
  using Text = std::function<std::string(double seconds)>;

  // `console` must outlive it.
  Status_Line(Console& console, Text text);
  ~Status_Line();
  Status_Line(const Status_Line&) = delete;
  Status_Line& operator=(const Status_Line&) = delete;

 private:
  void run();
  void show();

  Console& console_;
  const Text text_;
  const bool terminal_;
  const std::chrono::steady_clock::time_point start_;
  std::chrono::steady_clock::time_point next_line_;
  std::mutex mutex_;
  std::condition_variable wake_;
  bool stop_ = false;
  std::thread thread_;
};

}  // namespace agent
