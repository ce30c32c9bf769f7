// The base of all tasks of a job: one thread that works on a queue of catalog blocks.
#pragma once

#include <ace/Task_Ex_T.h>

#include <memory>
#include <string>

#include "mtf/catalog/block_queue.h"
#include "services/thread_start.h"

class ACE_Log_Msg_Callback;

namespace MTF {

class Task_Base : public Safe_Start<ACE_Task_Ex<ACE_MT_SYNCH, Cat_Blk, ACE_System_Time_Policy>> {
 public:
  // `log` gets the lines of the task's thread; null leaves them where the process sends its lines.
  explicit Task_Base(std::shared_ptr<ACE_Log_Msg_Callback> log);
  // Why the task failed, for the host; 0 and empty where nothing says.
  virtual unsigned int err_code() const;
  virtual std::string err_msg() const;

  // The task's work, on its own thread; 0 or -1.
  virtual int svc_i() = 0;

  // Records that the task failed.
  virtual void set_error(int code);

  // Runs svc_i(). An exception that leaves it fails the task: bad_alloc sets errno 12, every other
  // is logged.
  int svc() override;
  // Wakes everybody who waits on the queue.
  int fini() override;

  // 0, or what set_error() recorded. To be read when the thread has ended.
  int last_error() const { return last_error_; }

  // Sets both water marks of the queue that the task has at this moment.
  void set_queue_marks();

 private:
  std::shared_ptr<ACE_Log_Msg_Callback> log_;
  int last_error_ = 0;
};

}  // namespace MTF
