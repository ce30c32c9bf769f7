// The task of one channel: takes catalog blocks from its queue and writes one media and one
// catalog.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "mtf/catalog/task_base.h"
#include "mtf/writer/ibackup_callback.h"
#include "mtf/writer/media_writer.h"
#include "mtf/writer/read_ahead.h"
#include "mtf/writer/ready_files.h"
#include "services/metadata.h"

namespace MTF {

class Data_Set;
class DBLK_Writer;
class Node_Source;
class Source_Consumer;

class Backup_Task : public Task_Base {
 public:
  // `opt` and `metadata` must outlive the task. `channel_index` is 0 alone, else 1 to N.
  Backup_Task(const Backup_Option& opt, const Metadata& metadata, unsigned long long channel_index,
              std::shared_ptr<ACE_Log_Msg_Callback> log);

  // 0, or -1 without a channel, an event handler or a hard-link map. `callback` and `volume_map`
  // may be null; `pre_action_data` is -1 for none.
  int init(Ref_Ptr<Channel> channel, unsigned int seq, Ref_Ptr<Event_Handler> evt_handler,
           Ref_Ptr<Writer_Hardlink_Map> hardlink_map, Ref_Ptr<IBackup_Callback> callback,
           const std::map<std::string, std::string>* volume_map, void* pre_action_data);

  // The totals of this channel, after a run without error.
  const Cat_Summary& summary() const { return summary_; }

  // What the media writer recorded.
  unsigned int err_code() const override;
  std::string err_msg() const override;
  int svc_i() override;
  // Also stops whoever feeds the queue, and the other channels.
  void set_error(int code) override;

 private:
  // The base has another operation of this name.
  using Task_Base::init;

  bool run();
  void look_ahead(std::optional<Read_Ahead>& read_ahead, std::optional<Ready_Files>& ready_files,
                  Source_Consumer& consumer);
  bool write_media(Data_Set& data_set);
  bool register_writers(Data_Set& data_set);
  // What was registered; null without memory.
  Ref_Ptr<DBLK_Writer> register_writer(Data_Set& data_set, DBLK_Writer* writer);
  DBLK_Writer* make_dir_writer();
  bool register_pre_action_writer(Data_Set& data_set);
  DBLK_Writer* make_file_writer();
  std::unique_ptr<Node_Source> make_node_source() const;
  bool register_link_writers(Data_Set& data_set, Ref_Ptr<DBLK_Writer> file);

  const Backup_Option* opt_;
  const Metadata* metadata_;
  [[maybe_unused]] const unsigned long long channel_index_;
  Ref_Ptr<Channel> channel_;
  Media_Writer media_writer_;
  unsigned int seq_ = 0;
  Ref_Ptr<Event_Handler> evt_handler_;
  Ref_Ptr<Writer_Hardlink_Map> hardlink_map_;
  Ref_Ptr<IBackup_Callback> callback_;
  const std::map<std::string, std::string>* volume_map_ = nullptr;
  void* pre_action_data_;
  Cat_Summary summary_;
};

}  // namespace MTF
