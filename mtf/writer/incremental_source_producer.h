// Decides which files of an incremental job are saved anew: compares the current walk with the
// catalog of an earlier job.
#pragma once

#include <memory>
#include <string>

#include "mtf/catalog/cat_summary.h"
#include "mtf/catalog/catalog_forward_finder.h"
#include "mtf/catalog/task_base.h"
#include "mtf/writer/writer_hardlink_map.h"
#include "services/event_handler.h"
#include "services/ref_ptr.h"

namespace MTF {

// Stands between the source and one channel. A file that changed passes unaltered, with the job's
// own sequence number; for one that didn't the block of the earlier catalog goes on in its place,
// with the number of the job that holds the file's content. The new catalog so describes the whole
// tree.
//
// A file is unchanged if the earlier catalog holds its path with the same type, the same time to
// the second and the same place among hard links. A careful job also wants the same size, and no
// mark of its source that the file may have changed unseen. Nothing else is compared. An earlier
// catalog that isn't sound fails the task, with a line that names the catalog and the position.
class Incremental_Source_Producer : public Task_Base {
 public:
  // `catalog` is the local path of the earlier catalog, `channel` 0 in a job of one channel.
  // `handler` may be null and is not owned.
  Incremental_Source_Producer(const std::string& catalog, unsigned int seq,
                              unsigned long long channel, Event_Handler* handler,
                              std::shared_ptr<ACE_Log_Msg_Callback> log);

  // What lines call the earlier catalog, ahead of init(); else they show its path.
  void shown_name(const std::string& name) { finder_.shown_name(name); }

  // Whether the job is careful, ahead of the task's start.
  void careful(bool on) { careful_ = on; }

  // Blocks come from `queue`, which is not owned and outlives the task's thread, and go to the
  // task's own msg_queue(). Opens the catalog. 1, or -1 for a null argument or a catalog that isn't
  // sound.
  int init(Cat_Blk_Queue* queue, Ref_Ptr<Writer_Hardlink_Map> hardlink_map);

  // Works until FEND has passed. A failure deactivates both queues.
  int svc_i() override;
  int fini() override;

 private:
  // The base has another operation of this name.
  using Task_Base::init;

  int compare();
  bool handle(std::unique_ptr<Cat_Blk>& block);
  bool handle_vol(std::unique_ptr<Cat_Blk>& block);
  bool handle_dir(std::unique_ptr<Cat_Blk>& block);
  bool handle_file_i(std::unique_ptr<Cat_Blk>& block);
  bool handle_hlnk(std::unique_ptr<Cat_Blk>& block);
  bool is_certain(Cat_Blk& block) const;
  bool handle_end(std::unique_ptr<Cat_Blk>& block);
  bool find_dir();
  bool take_over(Cat_Blk& block, const Cat_Blk& prev, const char* handler);
  void count(unsigned short seq, unsigned long long size);
  void report(int percent);
  bool pass_on(std::unique_ptr<Cat_Blk>& block);
  bool hand_on();
  bool put_failed();

  const std::string catalog_;
  const unsigned int seq_;
  const unsigned long long channel_;
  Event_Handler* event_handler_;
  Cat_Blk_Queue* queue_ = nullptr;
  Ref_Ptr<Writer_Hardlink_Map> hardlink_map_;
  Catalog_Forward_Finder finder_;
  bool careful_ = false;
  char separator_ = '\\';
  std::string vol_;
  std::string dir_;
  bool found_dir_ = false;
  Cat_Summary summary_;
  std::string name_;
};

}  // namespace MTF
