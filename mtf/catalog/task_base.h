// The base of all tasks of a job: one thread that works on a queue of catalog blocks.
#pragma once

#include <ace/Task_Ex_T.h>

#include <memory>
#include <string>

#include "mtf/catalog/cat_blk.h"
#include "services/thread_start.h"

class ACE_Log_Msg_Callback;

namespace MTF {

using Cat_Blk_Queue = ACE_Message_Queue_Ex<Cat_Blk, ACE_MT_SYNCH, ACE_System_Time_Policy>;

// Both water marks of every queue of a job.
constexpr std::size_t queue_mark = 800000;

// A queue of a job. One of ACE's own ends the process where there is no memory for a message.
class Checked_Queue : public Cat_Blk_Queue {
 public:
  using Cat_Blk_Queue::Cat_Blk_Queue;

  // As in ACE; without memory -1, with errno 12.
  int enqueue_tail(Cat_Blk* block, ACE_Time_Value* timeout = nullptr) override;
};

class Task_Base : public Safe_Start<ACE_Task_Ex<ACE_MT_SYNCH, Cat_Blk, ACE_System_Time_Policy>> {
 public:
  // `log` gets the lines of the task's thread; null leaves them where the process sends its lines.
  explicit Task_Base(std::shared_ptr<ACE_Log_Msg_Callback> log);
  // Frees the blocks that are left on the queue, if the queue is the task's own.
  ~Task_Base() override;

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
  Cat_Blk_Queue* own_queue_;
  int last_error_ = 0;
};

// Takes all blocks off a queue and frees them: a queue frees its messages, not what they carry.
void drain(Cat_Blk_Queue& queue);

}  // namespace MTF
