// How Backup starts the tasks of a job, waits for them and judges them.
#include <ace/Log_Msg.h>

#include "mtf/writer/backup.h"
#include "mtf/writer/source_sharding.h"
#include "platform/held_directory.h"
#include "services/assertion.h"
#include "services/json_spirit.h"

namespace MTF {
namespace {

constexpr int no_flags = 0;
constexpr int one_thread = 1;
constexpr int not_forced = 0;
constexpr long priority = 0;

bool start(Task_Base& task) {
  return task.activate(no_flags, one_thread, not_forced, priority) == 0;
}

void stop(Task_Base& task) {
  task.msg_queue()->deactivate();
  task.wait();
}

}  // namespace

bool Backup::activate_task() {
  MTF_ASSERT_NOT_NULL(full_source_producer_.get(), false);
  if (safely([this] { return start_tasks(); })) return true;
  deactivate_queues();
  return false;
}

// Tasks that were started must not wait for ever for those that weren't.
void Backup::deactivate_queues() {
  full_source_producer_->msg_queue()->deactivate();
  if (source_sharding_.get() != nullptr) source_sharding_->fini();
  for (auto& task : incremental_source_producers_) task->msg_queue()->deactivate();
  for (auto& task : backup_tasks_) task->msg_queue()->deactivate();
}

bool Backup::start_tasks() {
  if (!activate(*full_source_producer_, "full_source_producer")) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to activate full source producer task\n")), false);
  }
  if (source_sharding_.get() != nullptr && !activate(*source_sharding_, "source_sharding")) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to activate full source sharding task\n")), false);
  }
  for (auto& task : incremental_source_producers_) {
    if (start(*task)) continue;
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to activate incremental source producer task\n")),
                     false);
  }
  for (auto& task : backup_tasks_) {
    if (start(*task)) continue;
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to activate backup task\n")), false);
  }
  return true;
}

bool Backup::activate(Task_Base& task, const char* name) {
  const bool result = start(task);
  send_event(event_task_started, {{"result", result}, {"name", name}});
  return result;
}

// From the end of the pipeline to its head. A task that writes a media keeps its queue while it
// works. Every other stage is released from its queue first.
void Backup::wait_task() {
  for (auto& task : backup_tasks_) {
    task->wait();
    task->msg_queue()->deactivate();
  }
  for (auto& task : incremental_source_producers_) stop(*task);
  if (source_sharding_.get() != nullptr) stop(*source_sharding_);
  if (full_source_producer_.get() != nullptr) stop(*full_source_producer_);
}

bool Backup::execute() {
  wait_task();
  held_directory_.reset();
  for (const auto& task : backup_tasks_) {
    if (task->last_error() == 0) continue;
    err_code_ = task->err_code();
    err_msg_ = task->err_msg();
    judge(*task, "backup");
    return false;
  }
  for (const auto& task : incremental_source_producers_) {
    if (!judge(*task, "incremental source producer")) return false;
  }
  if (source_sharding_.get() != nullptr && !judge(*source_sharding_, "source sharding")) {
    return false;
  }
  MTF_ASSERT_NOT_NULL(full_source_producer_.get(), false);
  return judge(*full_source_producer_, "full source producer") && complete();
}

bool Backup::judge(const Task_Base& task, const char* kind) {
  if (task.last_error() == 0) return true;
  ACE_ERROR_RETURN(
      (LM_ERROR, ACE_TEXT("Failed to execute %C task, last_error=%d\n"), kind, task.last_error()),
      false);
}

}  // namespace MTF
