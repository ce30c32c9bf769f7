#include "agent/console.h"

namespace agent {

void Console::line(const std::string& text) {
  const std::lock_guard<std::mutex> guard(mutex_);
  clear_status();
  out_ << text << '\n';
}

void Console::line_now(const std::string& text) {
  const std::lock_guard<std::mutex> guard(mutex_);
  clear_status();
  out_ << text << '\n' << std::flush;
}

void Console::note(const std::string& text) {
  const std::lock_guard<std::mutex> guard(mutex_);
  clear_status();
  err_ << text << '\n' << std::flush;
}

void Console::status(const std::string& text) {
  const std::lock_guard<std::mutex> guard(mutex_);
  clear_status();
  if (text.empty()) return;
  err_ << text << std::flush;
  has_status_ = true;
}

bool Console::finish() {
  const std::lock_guard<std::mutex> guard(mutex_);
  clear_status();
  out_.flush();
  return out_.good();
}

void Console::clear_status() {
  if (has_status_) err_ << "\r\x1b[K" << std::flush;
  has_status_ = false;
}

}  // namespace agent
