// Another program that runs beside this one.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace platform {

using Variables = std::vector<std::pair<std::string, std::string>>;

// What to start, and what it is connected with. Where nothing else is said its input is empty.
struct Child_Setup {
  std::vector<std::string> arguments;  // the first is the program, which is looked up in PATH
  Variables variables;                 // of its environment, whatever this process has
  Variables defaults;                  // set where this process has none of that name
  // Beginnings of the variables, as "NAME=VALUE", that it doesn't get from this process.
  std::vector<std::string> hidden;
  bool is_fed = false;  // write() gives it its input
  // Seconds that one call waits for it while nothing moves between it and this process.
  int patience = 0;
  // Ends the waiting of write() and finish() when it becomes true; may be null.
  const std::atomic<bool>* canceled = nullptr;
};

// The child has a session of its own, so the keys of a terminal don't reach it. It ends with this
// process, however that ends. One thread at a time; every failure leaves its errno.
class Child_Process {
 public:
  Child_Process() = default;
  ~Child_Process() { stop(); }
  Child_Process(const Child_Process&) = delete;
  Child_Process& operator=(const Child_Process&) = delete;

  // ENOENT if there is no such program.
  bool start(const Child_Setup& setup);

  // Gives it all of `size` bytes. ETIMEDOUT when its patience ran out, ECANCELED, EPIPE when it
  // takes no more.
  bool write(const char* data, std::size_t size);

  // Up to `size` bytes of what it prints; 0 at the end, -1 on failure.
  long long read(char* data, std::size_t size);

  // Ends its input, waits for its end and gives its exit code, -1 where a signal ended it. Not
  // before all is read that it prints to this process.
  bool finish(int& code);

  // Ends it: asks first, and kills it some seconds later.
  void stop();

  // What it printed on its standard error, from the byte `from` on; of much only the end. Any
  // thread may ask, and ask how much there is.
  std::string said(long long from = 0) const;
  long long said_size() const;

  // Waits for its end, but no longer than that. It stays to be stopped.
  bool has_ended(int milliseconds) const;

  int patience() const { return patience_; }

  // How long nothing has moved between it and this process.
  std::chrono::steady_clock::duration idle() const { return Clock::now() - moved_at_; }

 private:
  using Clock = std::chrono::steady_clock;

  bool wait_for(int fd, short events);
  bool reap(int milliseconds, int& status);
  void close_ways();

  pid_t pid_ = -1;
  int watch_ = -1;  // becomes readable at its end
  int input_ = -1;
  int output_ = -1;
  int errors_ = -1;
  int patience_ = 0;
  Clock::time_point moved_at_;
  const std::atomic<bool>* canceled_ = nullptr;
};

}  // namespace platform
