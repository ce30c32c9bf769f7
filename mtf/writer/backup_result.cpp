// What Backup makes of a job when its tasks have ended, and how it cleans up.
#include <ace/Log_Msg.h>

#include "mtf/writer/backup.h"
#include "mtf/writer/backup_context.h"
#include "mtf/writer/backup_task.h"
#include "mtf/writer/block_producer.h"
#include "platform/held_directory.h"
#include "services/assertion.h"
#include "services/json_spirit.h"
#include "services/piece_name.h"
#include "services/working_path.h"

namespace MTF {
bool Backup::complete() {
  for (std::size_t i = 0; i < backup_tasks_.size(); ++i) {
    add_up(static_cast<const Backup_Task&>(*backup_tasks_[i]).summary(), i == 0);
  }
  summary_.dump();
  if (evt_handler_.get() == nullptr) return true;
  count_untold();
  const unsigned long long skipped_dirs = evt_handler_->skipped_dirs;
  const unsigned long long skipped_files = evt_handler_->skipped_files;
  send_event(event_summary, {{"vol_count", summary_.vol_count()},
                             {"dir_count", summary_.dir_count()},
                             {"file_count", summary_.file_count()},
                             {"total_size", summary_.total_size()},
                             {"inc_size", summary_.inc_size()},
                             {"storage_size", summary_.storage_size()},
                             {"inc_file_count", summary_.inc_file_count()},
                             {"skipped_dirs", skipped_dirs},
                             {"skipped_files", skipped_files}});
  if (skipped_dirs == 0 && skipped_files == 0) return true;
  if (summary_.file_count() == 0 && summary_.inc_file_count() == 0) {
    err_code_ = error_nothing_saved;
    ACE_ERROR_RETURN(
        (LM_ERROR, ACE_TEXT("%Q dirs and %Q files skipped, but no file backuped up.\n"),
         skipped_dirs, skipped_files),
        false);
  }
  err_code_ = error_skipped;
  ACE_ERROR_RETURN(
      (LM_WARNING, ACE_TEXT("Backup completed with %Q skipped directories, %Q skipped files.\n"),
       skipped_dirs, skipped_files),
      true);
}

// What the walk of an incremental job left out without an event counts as well.
void Backup::count_untold() {
  if (full_source_producer_.get() == nullptr) return;
  const auto& producer = static_cast<const Block_Producer&>(*full_source_producer_);
  evt_handler_->skipped_dirs += producer.untold_dirs();
  evt_handler_->skipped_files += producer.untold_files();
}

// The first channel alone has every volume and directory of the source.
void Backup::add_up(const Cat_Summary& channel, bool first) {
  if (first) {
    summary_.vol_count(channel.vol_count());
    summary_.dir_count(channel.dir_count());
  }
  summary_.file_count(summary_.file_count() + channel.file_count());
  summary_.total_size(summary_.total_size() + channel.total_size());
  summary_.inc_size(summary_.inc_size() + channel.inc_size());
  summary_.storage_size(summary_.storage_size() + channel.storage_size());
  summary_.inc_file_count(summary_.inc_file_count() + channel.inc_file_count());
  summary_.large_file_count(summary_.large_file_count() + channel.large_file_count());
  summary_.small_file_count(summary_.small_file_count() + channel.small_file_count());
}

void Backup::clean() {
  wait_task();
  full_source_producer_ = null_ref<Task_Base>;
  source_sharding_ = null_ref<Task_Base>;
  incremental_source_producers_.clear();
  backup_tasks_.clear();
  for (auto& channel : channels_) {
    safely([&] { return channel->close(); });
    safely([&] { return channel->disconnect(), true; });
  }
  channels_.clear();
  held_directory_.reset();
  safely([this] { return remove_working_files(); });
}

bool Backup::remove_working_files() const {
  // A job that never got its name has no directory of its own.
  if (opt_.minor_resource_id.empty()) return true;
  return remove_working_directory(opt_.job_tmp_dir, opt_.minor_resource_id);
}

void Backup::remove_storage_file() {
  // Without a number of its own the object still has that of the job before.
  if (!numbered_) return;
  Ref_Ptr<Channel> channel = null_ref<Channel>;
  safely([&] {
    channel = channel_factory_->create();
    return true;
  });
  MTF_ASSERT_NOT_NULL(channel.get(), void());
  unsigned long long n = channel_num_ > 1 ? channel_num_ : 0;
  do {
    // One piece whose name can't be made must not keep the others from being removed.
    std::string name;
    safely([&] {
      mtf_name(opt_.minor_resource_id, seq_, n, name);
      return channel->remove(name.c_str());
    });
    safely([&] {
      cat_name(opt_.minor_resource_id, seq_, n, name);
      return channel->remove(name.c_str());
    });
  } while (n != 0 && --n != 0);
}

}  // namespace MTF
