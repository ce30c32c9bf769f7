#include "mtf/writer/backup_task.h"

#include <ace/Log_Msg.h>

#include <cstdint>
#include <new>
#include <vector>

#include "mtf/writer/backup.h"
#include "mtf/writer/data_set.h"
#include "mtf/writer/dir_blk_writer_callback.h"
#include "mtf/writer/dir_blk_writer_win.h"
#include "mtf/writer/file_blk_writer_callback.h"
#include "mtf/writer/file_blk_writer_unix.h"
#include "mtf/writer/file_blk_writer_win.h"
#include "mtf/writer/node_blk_writer.h"
#include "mtf/writer/pdat_blk_writer.h"
#include "mtf/writer/source_consumer.h"
#include "mtf/writer/sset_blk_writer.h"
#include "mtf/writer/vol_blk_writer.h"
#include "services/assertion.h"

namespace MTF {

Backup_Task::Backup_Task(const Backup_Option& opt, const Metadata& metadata,
                         unsigned long long channel_index,
                         std::shared_ptr<ACE_Log_Msg_Callback> log)
    : Task_Base(log),
      opt_(&opt),
      metadata_(&metadata),
      channel_index_(channel_index),
      media_writer_(opt, channel_index),
      pre_action_data_(Backup::no_pre_action_data) {}

int Backup_Task::init(Ref_Ptr<Channel> channel, unsigned int seq,
                      Ref_Ptr<Event_Handler> evt_handler, Ref_Ptr<Writer_Hardlink_Map> hardlink_map,
                      Ref_Ptr<IBackup_Callback> callback,
                      const std::map<std::string, std::string>* volume_map, void* pre_action_data) {
  MTF_ASSERT_NOT_NULL(channel.get(), -1);
  MTF_ASSERT_NOT_NULL(evt_handler.get(), -1);
  MTF_ASSERT_NOT_NULL(hardlink_map.get(), -1);
  channel_ = channel;
  seq_ = seq;
  evt_handler_ = evt_handler;
  hardlink_map_ = hardlink_map;
  callback_ = callback;
  volume_map_ = volume_map;
  pre_action_data_ = pre_action_data;
  return 0;
}

unsigned int Backup_Task::err_code() const {
  return media_writer_.err_code();
}

std::string Backup_Task::err_msg() const {
  return media_writer_.err_msg();
}

int Backup_Task::svc_i() {
  if (!run()) {
    set_error(-1);
    return -1;
  }
  // After a cancel blocks may still come. What feeds several channels must not wait for room here
  // while another channel waits for it.
  msg_queue()->deactivate();
  return 0;
}

void Backup_Task::set_error(int code) {
  Task_Base::set_error(code);
  msg_queue()->deactivate();
  evt_handler_->set_job_failed();
}

bool Backup_Task::run() {
  Data_Set_Conf conf;
  conf.compression_method(opt_->compression_method);
  std::optional<Read_Ahead> read_ahead;
  std::optional<Ready_Files> ready_files;
  Source_Consumer consumer(msg_queue());
  if (callback_.get() == nullptr) look_ahead(read_ahead, ready_files, consumer);
  Data_Set data_set(conf, consumer, evt_handler_.get());
  if (!register_writers(data_set)) return false;
  if (!write_media(data_set) || consumer.damaged()) return false;
  summary_ = media_writer_.summary();
  return true;
}

void Backup_Task::look_ahead(std::optional<Read_Ahead>& read_ahead,
                             std::optional<Ready_Files>& ready_files, Source_Consumer& consumer) {
  std::vector<Look_Ahead*> users;
  if (opt_->read_ahead) users.push_back(&read_ahead.emplace());
  if (opt_->compression_method != compression_none && opt_->compression_threads > 1) {
    users.push_back(&ready_files.emplace(opt_->compression_method, opt_->compression_level,
                                         opt_->compression_threads));
    media_writer_.use(&*ready_files);
  }
  if (users.empty()) return;
  consumer.look_ahead_for(users, Block_Paths(static_cast<unsigned short>(seq_), volume_map_));
}

bool Backup_Task::write_media(Data_Set& data_set) {
  if (!media_writer_.open(channel_, seq_, hardlink_map_, evt_handler_, volume_map_)) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to open media writer\n")), false);
  }
  if (!media_writer_.add_data_set(&data_set)) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to add data set\n")), false);
  }
  // A write that a cancel stopped is no error of the task.
  if (!media_writer_.write() && !evt_handler_->is_canceling()) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to write media\n")), false);
  }
  return true;
}

bool Backup_Task::register_writers(Data_Set& data_set) {
  const auto add = [&](DBLK_Writer* writer) { return register_writer(data_set, writer); };
  if (add(new (std::nothrow) SSet_Blk_Writer(*metadata_, data_set.conf())).get() == nullptr ||
      add(new (std::nothrow) Vol_Blk_Writer).get() == nullptr ||
      add(make_dir_writer()).get() == nullptr) {
    return false;
  }
  const Ref_Ptr<DBLK_Writer> file = add(make_file_writer());
  if (file.get() == nullptr) return false;
  if (opt_->save_links && !register_link_writers(data_set, file)) return false;
  return register_pre_action_writer(data_set);
}

std::unique_ptr<Node_Source> Backup_Task::make_node_source() const {
  return callback_.get() != nullptr ? make_callback_node_source(callback_)
                                    : make_local_node_source();
}

bool Backup_Task::register_link_writers(Data_Set& data_set, Ref_Ptr<DBLK_Writer> file) {
  HLnk_Blk_Writer::Content_Writers content{file, null_ref<DBLK_Writer>, null_ref<DBLK_Writer>};
  content.link = register_writer(
      data_set, new (std::nothrow) SLnk_Blk_Writer(evt_handler_, make_node_source()));
  content.device = register_writer(
      data_set, new (std::nothrow) Devb_Blk_Writer(evt_handler_, make_node_source()));
  if (content.link.get() == nullptr || content.device.get() == nullptr) return false;
  auto* hlnk = new (std::nothrow) HLnk_Blk_Writer(evt_handler_, make_node_source(), content);
  return register_writer(data_set, hlnk).get() != nullptr;
}

DBLK_Writer* Backup_Task::make_dir_writer() {
  if (callback_.get() != nullptr) {
    return new (std::nothrow) Dir_Blk_Writer_Callback(callback_, evt_handler_);
  }
  return new (std::nothrow) Dir_Blk_Writer_Win(evt_handler_);
}

DBLK_Writer* Backup_Task::make_file_writer() {
  if (callback_.get() != nullptr) {
    return new (std::nothrow) File_Blk_Writer_Callback(evt_handler_, callback_);
  }
  if (opt_->backup_read) {
    ACE_DEBUG((LM_DEBUG, ACE_TEXT("Use BackupRead API to read file.\n")));
    return new (std::nothrow) File_Blk_Writer_Win(evt_handler_);
  }
  return new (std::nothrow) File_Blk_Writer_Unix(evt_handler_);
}

bool Backup_Task::register_pre_action_writer(Data_Set& data_set) {
  if (pre_action_data_ == Backup::no_pre_action_data) return true;
  const auto handle = static_cast<ACE_HANDLE>(reinterpret_cast<std::intptr_t>(pre_action_data_));
  auto* writer = new (std::nothrow) PDat_Blk_Writer(handle, evt_handler_);
  return register_writer(data_set, writer).get() != nullptr;
}

Ref_Ptr<DBLK_Writer> Backup_Task::register_writer(Data_Set& data_set, DBLK_Writer* writer) {
  const Ref_Ptr<DBLK_Writer> shared = share(writer);
  if (shared.get() != nullptr) data_set.register_dblk_writer(shared);
  return shared;
}

}  // namespace MTF
