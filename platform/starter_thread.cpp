#include "platform/starter_thread.h"

#include <signal.h>

#include <condition_variable>
#include <mutex>
#include <thread>

namespace platform {
namespace {

class Starter {
 public:
  // Signals go to the threads that were there before.
  Starter() {
    sigset_t all, before;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread([this] { serve(); }).detach();
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }

  void run(const std::function<void()>& task) {
    const std::lock_guard<std::mutex> one_at_a_time(callers_);
    std::unique_lock<std::mutex> lock(mutex_);
    task_ = &task;
    changed_.notify_all();
    changed_.wait(lock, [this] { return task_ == nullptr; });
  }

 private:
  [[noreturn]] void serve() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (true) {
      changed_.wait(lock, [this] { return task_ != nullptr; });
      (*task_)();
      task_ = nullptr;
      changed_.notify_all();
    }
  }

  std::mutex callers_;
  std::mutex mutex_;
  std::condition_variable changed_;
  const std::function<void()>* task_ = nullptr;
};

}  // namespace

void run_on_starter(const std::function<void()>& task) {
  static Starter* const starter = new Starter;  // never deleted, as its thread never ends
  starter->run(task);
}

}  // namespace platform
