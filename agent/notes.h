// Lines for people of which a job may have very many.
#pragma once

#include <map>
#include <mutex>
#include <string>

#include "agent/console.h"

namespace agent {

// Shows lines on standard error. A line that came before is counted, and of the lines of one kind
// all behind the tenth are; what was counted is told when the job ends. Every operation may be
// called from several threads.
class Notes {
 public:
  // `console` must outlive it. With `all` every line is shown, however many of its kind came
  // before.
  Notes(Console& console, bool all) : console_(console), all_(all) {}
  ~Notes();
  Notes(const Notes&) = delete;
  Notes& operator=(const Notes&) = delete;

  // Shows or counts a line of the kind that `kind` describes.
  void add(const std::string& line, const std::string& kind);

  // Tells what was counted, and forgets it.
  void flush();

  Console& console() { return console_; }

 private:
  bool is_shown(const std::string& line, const std::string& kind);
  bool has_enough(const std::string& kind);

  Console& console_;
  const bool all_;
  std::mutex mutex_;
  std::map<std::string, unsigned long long> repeats_;  // by line; 0 for one that came once
  std::map<std::string, unsigned long long> kinds_;    // lines by kind
};

}  // namespace agent
