// Where the lines of a job's threads go.
#pragma once

class ACE_Log_Msg_Callback;

namespace MTF {

// For as long as it lives the lines of its thread go to `callback`, and not to the terminal where
// the process would send them; those of all other threads go where they went before. With null it
// changes nothing. Made and destroyed on the same thread, and not nested.
class Thread_Log {
 public:
  explicit Thread_Log(ACE_Log_Msg_Callback* callback);
  ~Thread_Log();
  Thread_Log(const Thread_Log&) = delete;
  Thread_Log& operator=(const Thread_Log&) = delete;

 private:
  ACE_Log_Msg_Callback* const callback_;
  ACE_Log_Msg_Callback* before_ = nullptr;
};

}  // namespace MTF
