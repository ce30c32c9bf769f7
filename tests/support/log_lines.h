// Takes the lines of the log instead of the terminal.
#pragma once

#include <ace/Log_Msg.h>
#include <ace/Log_Msg_Callback.h>
#include <ace/Log_Record.h>

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "tests/support/spared.h"

namespace test_support {

// Safe for lines of several threads at once.
class Log_Lines : public ACE_Log_Msg_Callback {
 public:
  void log(ACE_Log_Record& record) override {
    const Spared spared;
    const std::lock_guard<std::mutex> lock(mutex_);
    lines_.push_back(std::to_string(record.type()) + ' ' + record.msg_data());
  }

  // How many lines begin with `text`, which starts with the number of the priority and a space.
  long count(const std::string& text) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::count_if(lines_.begin(), lines_.end(),
                         [&text](const std::string& line) { return line.rfind(text, 0) == 0; });
  }

  // All lines.
  std::string text() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::string all;
    for (const std::string& line : lines_) all += line;
    return all;
  }

  // Whether a line of an assertion names `check`, such as "channel.get() is NULL".
  bool asserted(const std::string& check) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::any_of(lines_.begin(), lines_.end(), [&check](const std::string& line) {
      return line.rfind("1024 Unexpected error in ", 0) == 0 &&
             line.find(", " + check + ":\n") != std::string::npos;
    });
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

// Sends the lines of this thread to `lines` for as long as it lives.
class Capture {
 public:
  explicit Capture(Log_Lines& lines)
      : flags_(ACE_LOG_MSG->flags()), before_(ACE_LOG_MSG->msg_callback(&lines)) {
    ACE_LOG_MSG->set_flags(ACE_Log_Msg::MSG_CALLBACK);
    ACE_LOG_MSG->clr_flags(ACE_Log_Msg::STDERR);
  }
  ~Capture() {
    ACE_LOG_MSG->clr_flags(ACE_Log_Msg::MSG_CALLBACK);
    ACE_LOG_MSG->set_flags(flags_);
    ACE_LOG_MSG->msg_callback(before_);
  }
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

 private:
  const unsigned long flags_;
  ACE_Log_Msg_Callback* const before_;
};

}  // namespace test_support
