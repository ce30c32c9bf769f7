#include "mtf/catalog/task_base.h"

#include "services/no_throw.h"
#include "services/thread_log.h"

namespace MTF {

Task_Base::Task_Base(std::shared_ptr<ACE_Log_Msg_Callback> log)
    : Safe_Start(nullptr, new Block_Queue), log_(log) {
  delete_msg_queue_ = true;
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

}  // namespace MTF
