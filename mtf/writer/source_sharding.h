// Spreads one stream of catalog blocks over N channels, so that each channel's stream is valid by
// itself.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "mtf/catalog/task_base.h"
#include "mtf/writer/writer_hardlink_map.h"
#include "services/ref_ptr.h"

namespace MTF {

// Channel 1 gets every volume and directory; another channel those that its files need. A file goes
// to the channel that the hash of its full path gives, a further name of a file to that of the
// first name.
class Source_Sharding : public Task_Base {
 public:
  Source_Sharding(unsigned int seq, std::shared_ptr<ACE_Log_Msg_Callback> log);

  // Makes the queues of `channels` channels. 0 or -1.
  int init(unsigned long long channels, Ref_Ptr<Writer_Hardlink_Map> hardlink_map);

  // The queue of channel `n`, counted from 1; null beyond the last one.
  Cat_Blk_Queue* queue(unsigned long long n);

  int svc_i() override;

  // Wakes everybody who waits on a queue of the task, its input included.
  int fini() override;

 private:
  // The base has other operations of these names.
  using Task_Base::init;
  using Task_Base::put;

  // Where a channel stands: the last volume and directory put on it, with backslashes.
  struct Channel_State {
    Ref_Ptr<Cat_Blk_Queue> queue;
    std::string vol;
    std::string dir;
  };

  int spread();
  bool handle(std::unique_ptr<Cat_Blk>& block);
  bool put_vol(unsigned long long n, std::unique_ptr<Cat_Blk>& block);
  bool put_dir(unsigned long long n, std::unique_ptr<Cat_Blk>& block);
  bool put_file(std::unique_ptr<Cat_Blk>& block);
  bool full_path(const Cat_Blk& block, std::string& full);
  bool sync_dir(unsigned long long n);
  template <class Blk>
  bool put_separated(unsigned long long n, const std::string& name);
  bool put(unsigned long long n, std::unique_ptr<Cat_Blk>& block);
  bool put_end();
  bool hand_over_all();
  Channel_State& state(unsigned long long n) { return channels_[n - 1]; }

  const unsigned int seq_;
  std::vector<Channel_State> channels_;
  unsigned long long channel_num_ = 0;
  Ref_Ptr<Writer_Hardlink_Map> hardlink_map_;
  std::function<unsigned int(const std::string&)> hash_;
};

}  // namespace MTF
