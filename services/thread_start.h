// How the threads of a task are started when memory may be short.
#pragma once

#include <ace/Task.h>

#include <functional>
#include <thread>
#include <vector>

#include "services/no_throw.h"

namespace MTF {

// True where lines can be logged from this thread: its part of the log takes memory once, and no
// line is safe without.
bool can_log();

// Starts `count` threads that run `body`, or none: false, with errno, unless each of them is there
// and can log. They log as the calling thread does. May throw bad_alloc, with no thread started.
bool start_threads(int count, const std::function<void()>& body, std::vector<std::thread>& threads);

// An ACE task whose threads are started as above. ACE's own way ends the process when memory runs
// out half way. A task that was started must be waited for before it is destroyed.
template <class Task>
class Safe_Start : public Task {
 public:
  using Task::Task;

  // 0; 1 if the task runs already; -1, with errno, if the threads can't be had. Only the number of
  // threads counts.
  int activate(long /*flags*/ = 0, int n_threads = 1, int /*force_active*/ = 0,
               long /*priority*/ = 0, int /*grp_id*/ = -1, ACE_Task_Base* = nullptr,
               ACE_hthread_t* = nullptr, void** = nullptr, size_t* = nullptr,
               ACE_thread_t* = nullptr, const char** = nullptr) override {
    if (!threads_.empty()) return 1;
    const auto body = [this] { no_throw("Thread", 0, [this] { return this->svc(); }); };
    const auto start = [&] { return start_threads(n_threads, body, threads_); };
    return no_throw("Thread", false, start) ? 0 : -1;
  }

  int wait() override {
    for (std::thread& thread : threads_) thread.join();
    threads_.clear();
    return 0;
  }

 private:
  std::vector<std::thread> threads_;
};

}  // namespace MTF
