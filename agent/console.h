// Where the agent prints: results on standard output, all else on standard error.
#pragma once

#include <mutex>
#include <ostream>
#include <string>

namespace agent {

// Every operation may be called from several threads; lines don't mix.
class Console {
 public:
  // `out` and `err` must outlive it.
  Console(std::ostream& out, std::ostream& err) : out_(out), err_(err) {}

  // A line of the result.
  void line(const std::string& text);

  // The same, but the line reaches a program that reads the output at once.
  void line_now(const std::string& text);

  // A line on standard error. A status line that stands there makes room and doesn't come back.
  void note(const std::string& text);

  // Shows `text`, without control characters and no wider than the terminal at standard error, in
  // place of the status line before. An empty text takes it away.
  void status(const std::string& text);

  // False if a line of the result didn't arrive, on a full disk for instance.
  bool finish();

 private:
  void clear_status();

  std::mutex mutex_;
  std::ostream& out_;
  std::ostream& err_;
  bool has_status_ = false;
};

}  // namespace agent
