#include "services/thread_start.h"

#include <ace/Log_Msg.h>
#include <ace/OS_Log_Msg_Attributes.h>
#include <ace/OS_NS_errno.h>

#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <system_error>

namespace MTF {
namespace {

// Where new threads wait until it is known whether all of them are there.
class Gate {
 public:
  // For a new thread: true once the gate is open; false if the start was given up.
  bool pass(bool fit) {
    std::unique_lock<std::mutex> lock(mutex_);
    ++arrived_;
    fit_ = fit_ && fit;
    changed_.notify_all();
    changed_.wait(lock, [this] { return decided_; });
    return fit_;
  }

  // Waits for `count` threads. Opens the gate if all of them are there and ready to work.
  bool open(std::size_t count, bool all) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [&] { return arrived_ == count; });
    fit_ = fit_ && all;
    decided_ = true;
    changed_.notify_all();
    return fit_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::size_t arrived_ = 0;
  bool fit_ = true;
  bool decided_ = false;
};

// The errno for what kept a thread from being made.
int error_of(const std::exception& error) {
  const auto* refused = dynamic_cast<const std::system_error*>(&error);
  return refused != nullptr ? refused->code().value() : ENOMEM;
}

}  // namespace

bool can_log() {
  ACE_Log_Msg* const log = ACE_LOG_MSG;
  return log != nullptr && log->msg() != nullptr;
}

bool start_threads(int count, const std::function<void()>& body,
                   std::vector<std::thread>& threads) {
  threads.reserve(static_cast<std::size_t>(count));
  const auto gate = std::make_shared<Gate>();
  ACE_OS_Log_Msg_Attributes attributes;
  ACE_Log_Msg::init_hook(attributes);
  int error = 0;
  try {
    for (int i = 0; i < count; ++i) {
      threads.emplace_back([gate, body, &attributes] {
        const bool fit = can_log();
        if (fit) ACE_Log_Msg::inherit_hook(nullptr, attributes);
        if (gate->pass(fit)) body();
      });
    }
  } catch (const std::exception& failure) {
    error = error_of(failure);
  }
  if (gate->open(threads.size(), error == 0)) return true;
  for (std::thread& thread : threads) thread.join();
  threads.clear();
  errno = error != 0 ? error : ENOMEM;
  return false;
}

}  // namespace MTF
