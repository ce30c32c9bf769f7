// Calls of rclone, the program that knows the remotes: their protocols, keys, ciphers and retries.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/child_process.h"

namespace agent {

// How a call ended.
enum class Call_End { done, missing, failed };

// May be used from several threads.
class Rclone {
 public:
  // `place` is "REMOTE:PATH".
  explicit Rclone(std::string place) : place_(std::move(place)) {}

  // "REMOTE:PATH/NAME"; the place itself for an empty name.
  std::string path(const std::string& name) const;

  // Starts a call with these arguments; null, with a line for the user, if that fails.
  // `setup` says what the call is connected with; the rest of it is set here.
  std::unique_ptr<platform::Child_Process> start(const std::vector<std::string>& arguments,
                                                 platform::Child_Setup setup, std::string& error);

  // Waits for the end of a call. Unless it went well, `error` is a line for the user.
  Call_End finish(platform::Child_Process& call, std::string& error);

  // Writes the short text of a mark or a lock as the object `name`.
  Call_End put(const std::string& name, const std::string& text, std::string& error);

  // The line for a call that failed with errno while it was read or written; the call is ended.
  std::string broken(platform::Child_Process& call);

  // A whole call; `out` takes what it prints, and may be null.
  Call_End run(const std::vector<std::string>& arguments, std::string* out, std::string& error);

  // A whole call that reads the file `input`, or writes `output`.
  Call_End run_with(const std::vector<std::string>& arguments, const platform::Piece_File* input,
                    const platform::Piece_File* output, std::string& error);

  // True once calls are refused: the remote was silent for too long, or failed again and again.
  bool is_given_up() const { return given_up_; }

  // Whether a read that failed is worth another try, and the pause before it. `tries` counts those
  // without a byte between them.
  bool wait_for_retry(int& tries) const;

  // To be called when data came or went: the remote answers.
  void note_progress();

 private:
  void note_failure(const std::string& error, bool was_slow);
  std::string end_text(const platform::Child_Process& call, int code) const;

  const std::string place_;
  std::atomic<bool> given_up_{false};
  std::mutex mutex_;
  std::string reason_;  // why calls are refused
  int failures_ = 0;    // one behind the other
};

// Ends the waiting of every call that writes data, now and later, as a job that is stopped needs no
// more of it. For signal handlers too.
void stop_writing_calls();

// The last message in what rclone said, as one line: without its date, and without what may be a
// secret in an address.
std::string engine_words(const std::string& said);

// Lines about reads that failed, for the end of a command; each is kept once.
void note_trouble(const std::string& line);
std::vector<std::string> take_troubles();

}  // namespace agent
