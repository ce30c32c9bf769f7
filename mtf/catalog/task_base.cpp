#include "mtf/catalog/task_base.h"

#include <ace/Message_Block.h>
#include <ace/OS_NS_errno.h>

#include <new>

#include "services/no_throw.h"
#include "services/thread_log.h"

namespace MTF {

int Checked_Queue::enqueue_tail(Cat_Blk* block, ACE_Time_Value* timeout) {
  auto* message = new (std::nothrow)
      ACE_Message_Block(reinterpret_cast<char*>(block), sizeof *block, DEFAULT_PRIORITY);
  const bool whole = message != nullptr && message->data_block() != nullptr;
  const int result = whole ? queue_.enqueue_tail(message, timeout) : -1;
  if (!whole) errno = ENOMEM;
  if (result == -1 && message != nullptr) message->release();
  return result;
}

Task_Base::Task_Base(std::shared_ptr<ACE_Log_Msg_Callback> log)
    : Safe_Start(nullptr, new Checked_Queue), log_(log), own_queue_(msg_queue()) {
  delete_msg_queue_ = true;
}

Task_Base::~Task_Base() {
  if (own_queue_ != nullptr && own_queue_ == msg_queue()) drain(*own_queue_);
}

unsigned int Task_Base::err_code() const {
  return 0;
}

std::string Task_Base::err_msg() const {
  return std::string();
}

void Task_Base::set_error(int code) {
  last_error_ = code;
}

int Task_Base::svc() {
  const Thread_Log log(log_.get());
  constexpr int thrown = -2;
  const int result = no_throw("Task", thrown, [this] { return svc_i(); });
  if (result != thrown) return result;
  set_error(-1);
  fini();
  return -1;
}

int Task_Base::fini() {
  msg_queue()->deactivate();
  return 0;
}

void Task_Base::set_queue_marks() {
  msg_queue()->high_water_mark(queue_mark);
  msg_queue()->low_water_mark(queue_mark);
}

void drain(Cat_Blk_Queue& queue) {
  // A deactivated queue gives nothing.
  queue.activate();
  while (!queue.is_empty()) {
    Cat_Blk* block = nullptr;
    if (queue.dequeue_head(block) == -1) return;
    delete block;
  }
}

}  // namespace MTF
