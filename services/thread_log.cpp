#include "services/thread_log.h"

#include <ace/Log_Msg.h>
#include <ace/Log_Msg_Backend.h>
#include <ace/Log_Record.h>

#include <cstdio>
#include <mutex>

namespace MTF {
namespace {

thread_local bool has_own_log = false;

// Writes the lines of the threads that have no log of their own to the terminal, in the place of
// ACE's flag for it, which holds for all threads.
class Terminal : public ACE_Log_Msg_Backend {
 public:
  // The host's own output gets every line as before; null for none.
  void pass_on_to(ACE_Log_Msg_Backend* next) { next_ = next; }

  int open(const ACE_TCHAR* /*key*/) override { return 0; }
  int reset() override { return 0; }
  int close() override { return 0; }
  ssize_t log(ACE_Log_Record& record) override {
    if (next_ != nullptr) next_->log(record);
    return has_own_log ? 0 : record.print(nullptr, ACE_LOG_MSG->flags(), stderr);
  }

 private:
  ACE_Log_Msg_Backend* next_ = nullptr;
};

// What holds for the whole process while any thread has a log of its own.
class Process_Log {
 public:
  void enter() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (++threads_ > 1) return;
    ACE_Log_Msg* const log = ACE_LOG_MSG;
    before_ = log->flags();
    log->set_flags(ACE_Log_Msg::MSG_CALLBACK);
    if ((before_ & ACE_Log_Msg::STDERR) == 0) return;
    backend_before_ = ACE_Log_Msg::msg_backend();
    terminal_.pass_on_to((before_ & ACE_Log_Msg::CUSTOM) != 0 ? backend_before_ : nullptr);
    ACE_Log_Msg::msg_backend(&terminal_);
    log->set_flags(ACE_Log_Msg::CUSTOM);
    log->clr_flags(ACE_Log_Msg::STDERR);
  }

  void leave() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (--threads_ > 0) return;
    ACE_Log_Msg* const log = ACE_LOG_MSG;
    if ((before_ & ACE_Log_Msg::MSG_CALLBACK) == 0) log->clr_flags(ACE_Log_Msg::MSG_CALLBACK);
    if ((before_ & ACE_Log_Msg::STDERR) == 0) return;
    log->set_flags(ACE_Log_Msg::STDERR);
    if ((before_ & ACE_Log_Msg::CUSTOM) == 0) log->clr_flags(ACE_Log_Msg::CUSTOM);
    ACE_Log_Msg::msg_backend(backend_before_);
  }

 private:
  std::mutex mutex_;
  int threads_ = 0;
  unsigned long before_ = 0;
  ACE_Log_Msg_Backend* backend_before_ = nullptr;
  Terminal terminal_;
};

Process_Log& process_log() {
  static Process_Log log;
  return log;
}

}  // namespace

Thread_Log::Thread_Log(ACE_Log_Msg_Callback* callback) : callback_(callback) {
  if (callback_ == nullptr) return;
  has_own_log = true;
  process_log().enter();
  before_ = ACE_LOG_MSG->msg_callback(callback_);
}

Thread_Log::~Thread_Log() {
  if (callback_ == nullptr) return;
  ACE_LOG_MSG->msg_callback(before_);
  process_log().leave();
  has_own_log = false;
}

}  // namespace MTF
