// Calls of rclone, the program that knows the remotes: their protocols, keys, ciphers and retries.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "agent/http_call.h"
#include "agent/remote_objects.h"
#include "platform/child_process.h"

namespace agent {

class Rclone_Server;

// How a call ended.
enum class Call_End { done, missing, failed };

// Streams have a process each; what is small goes through one process, which the first such call
// starts. A failure comes with a line for the user in `error`. May be used from several threads.
class Rclone {
 public:
  // `place` is "REMOTE:PATH".
  explicit Rclone(std::string place);

  // All objects of the place itself, with the time of their last change by the remote's clock.
  Call_End list(std::vector<Remote_Object>& objects, std::string& error);

  // Writes the short text of a mark or a lock as the object `name`.
  Call_End put(const std::string& name, const std::string& text, std::string& error);

  // Writes a file as the object `name`.
  Call_End put_file(const std::string& name, platform::Piece_File& file, std::string& error);

  // Appends `count` bytes from `offset`, all inside the object; some of them also if it fails.
  Call_End get(const std::string& name, unsigned long long offset, unsigned long long count,
               std::string& out, std::string& error);

  // Gives all of an object to `take`, which leaves errno where it fails.
  Call_End get_all(const std::string& name, const Http_Call::Take& take, std::string& error);

  Call_End remove(const std::string& name, std::string& error);

  // Starts a stream that writes the object `name`, or reads `count` bytes of it; null if that
  // fails.
  std::unique_ptr<platform::Child_Process> start_writing(const std::string& name,
                                                         std::string& error);
  std::unique_ptr<platform::Child_Process> start_reading(const std::string& name,
                                                         unsigned long long offset,
                                                         unsigned long long count,
                                                         std::string& error);

  // Waits for the end of a stream.
  Call_End finish(platform::Child_Process& stream, std::string& error);

  // The line for a stream that failed with errno while it was read or written; it is ended.
  std::string broken(platform::Child_Process& stream);

  // True once calls are refused: the remote was silent for too long, or failed again and again.
  bool is_given_up() const { return given_up_; }

  // Whether a read that failed is worth another try, and the pause before it. `tries` counts those
  // without a byte between them.
  bool wait_for_retry(int& tries) const;

  // To be called when data came or went: the remote answers.
  void note_progress();

 private:
  using Server = std::shared_ptr<Rclone_Server>;
  using Prepare = std::function<void(Http_Call&)>;

  bool may_call(std::string& error);
  Server server(std::string& error);
  void drop(const Server& server);
  std::string path(const std::string& name) const;
  std::string object_path(const std::string& name) const;
  std::unique_ptr<platform::Child_Process> start(const std::vector<std::string>& arguments,
                                                 bool is_sending, std::string& error);
  Call_End serve(const std::string& path, const Prepare& prepare, const Http_Call::Take& take,
                 int patience, std::string& error);
  Call_End upload(const Prepare& prepare, int patience, std::string& error);
  void note_failure(const std::string& error, bool ends_all);

  const std::string place_;
  const std::string remote_;  // a remote that stands for the place: "NAME:"
  std::atomic<bool> given_up_{false};
  std::mutex mutex_;
  std::string reason_;  // why calls are refused
  int failures_ = 0;    // one behind the other
  std::mutex server_mutex_;
  Server server_;
};

// Ends the waiting of every call that writes data, now and later, as a job that is stopped needs no
// more of it. For signal handlers too.
void stop_writing_calls();

// Lines about reads that failed, for the end of a command; each is kept once.
void note_trouble(const std::string& line);
std::vector<std::string> take_troubles();

}  // namespace agent
