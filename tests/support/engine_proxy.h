// Between the agent and the calls that rclone serves.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>

namespace test_support {

// Passes calls on to a server on a port of this machine, which is read from a file at each call,
// and counts what comes back. Ends with the object.
class Engine_Proxy {
 public:
  explicit Engine_Proxy(std::string port_file);
  ~Engine_Proxy();
  Engine_Proxy(const Engine_Proxy&) = delete;
  Engine_Proxy& operator=(const Engine_Proxy&) = delete;

  int port() const { return port_; }

  // Answers calls whose text has `part` in it with `answer`, status line and all. Without one the
  // real answer is cut behind 700 bytes, the first time.
  void disturb(const std::string& part, const std::string& answer);

  // Calls that were disturbed.
  int disturbed() const { return disturbed_; }

  // Bytes of all answers.
  unsigned long long received() const { return received_; }

 private:
  void serve();
  void pass(int client);

  const std::string port_file_;
  int listener_ = -1;
  int port_ = 0;
  std::mutex mutex_;
  std::string part_, answer_;
  std::atomic<int> disturbed_{0};
  std::atomic<unsigned long long> received_{0};
  std::thread server_;
};

}  // namespace test_support
