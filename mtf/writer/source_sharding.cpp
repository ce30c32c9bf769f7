#include "mtf/writer/source_sharding.h"

#include <ace/Log_Msg.h>
#include <ace/OS_NS_errno.h>

#include <algorithm>
#include <new>

#include "mtf/writer/queue_blocks.h"
#include "oxbase/path.h"
#include "services/assertion.h"
#include "services/hash.h"

namespace MTF {
namespace {

// The name of a volume or directory with backslashes.
template <class Blk, class Getter>
bool separated_name(const Cat_Blk& block, Getter get, std::string& out) {
  Blk view;
  view.set_buffer(block);
  return get(view, '\\', out);
}

}  // namespace

Source_Sharding::Source_Sharding(unsigned int seq, std::shared_ptr<ACE_Log_Msg_Callback> log)
    : Task_Base(log), seq_(seq) {}

int Source_Sharding::init(unsigned long long channels, Ref_Ptr<Writer_Hardlink_Map> hardlink_map) {
  MTF_ASSERT_NOT_NULL(hardlink_map.get(), -1);
  if (channels == 0) return -1;
  for (unsigned long long i = 0; i < channels; ++i) {
    const auto queue = share<Cat_Blk_Queue>(new (std::nothrow) Block_Queue);
    if (queue.get() == nullptr) return -1;
    channels_.push_back(Channel_State{queue, "", ""});
  }
  channel_num_ = channels;
  hardlink_map_ = hardlink_map;
  hash_ = get_hash_func(hash_xxh32);
  return 0;
}

Cat_Blk_Queue* Source_Sharding::queue(unsigned long long n) {
  return n >= 1 && n <= channels_.size() ? state(n).queue.get() : nullptr;
}

int Source_Sharding::svc_i() {
  if (spread() == 0) return 0;
  set_error(-1);
  fini();
  return -1;
}

int Source_Sharding::fini() {
  for (Channel_State& channel : channels_) channel.queue->deactivate();
  return Task_Base::fini();
}

int Source_Sharding::spread() {
  for (;;) {
    Cat_Blk* taken = nullptr;
    if (getq(taken) == -1) return -1;
    std::unique_ptr<Cat_Blk> block(taken);
    if (block->hdr().type() == block_fend) return put_end() ? 0 : -1;
    if (!handle(block)) return -1;
    // The next block may have to be waited for.
    if (is_at_end_of_chunk(*msg_queue()) && !hand_over_all()) return -1;
  }
}

bool Source_Sharding::handle(std::unique_ptr<Cat_Blk>& block) {
  const unsigned int type = block->hdr().type();
  switch (type) {
    case block_volb:
      return put_vol(1, block);
    case block_dirb:
      return put_dir(1, block);
    case block_pdat:
      return put(1, block);
    case block_devb:
    case block_file:
    case block_hlnk:
    case block_slnk:
      return put_file(block);
    default:
      ACE_ERROR_RETURN((LM_WARNING, ACE_TEXT("Unknown catalog type: 0x%x\n"), type), true);
  }
}

bool Source_Sharding::put_vol(unsigned long long n, std::unique_ptr<Cat_Blk>& block) {
  if (!separated_name<Cat_Vol_Blk>(*block, get_device_from_vol, state(n).vol)) return false;
  state(n).dir.clear();
  return put(n, block);
}

bool Source_Sharding::put_dir(unsigned long long n, std::unique_ptr<Cat_Blk>& block) {
  return separated_name<Cat_Dir_Blk>(*block, get_name_from_dir, state(n).dir) && put(n, block);
}

bool Source_Sharding::put_file(std::unique_ptr<Cat_Blk>& block) {
  std::string full;
  if (!full_path(*block, full)) return false;
  const unsigned long long n = hash_(full) % channel_num_ + 1;
  return sync_dir(n) && put(n, block);
}

// The path that decides on the channel: for a further name of a file that of its first name.
bool Source_Sharding::full_path(const Cat_Blk& block, std::string& full) {
  std::string leaf;
  if (!leaf_name(block, leaf)) return false;
  if (block.hdr().type() == block_hlnk) {
    if (hardlink_map_->get(block.hdr().ino(), full)) return true;
    ACE_ERROR_RETURN(
        (LM_EMERGENCY, ACE_TEXT("Unexpected error in %N:%l, hardlink_map_->get( file->hdr().ino(), "
                                "full.str()) is false:\n%?\n")),
        false);
  }
  oxbase::Path_T<char> path('\\', false);
  path /= state(1).vol;
  path /= state(1).dir;
  path /= leaf;
  full = path.str();
  return true;
}

// Brings channel `n` to where channel 1 stands, with blocks of its own.
bool Source_Sharding::sync_dir(unsigned long long n) {
  if (n == 1) return true;
  Channel_State& channel = state(n);
  return lead_to(
      state(1).vol, state(1).dir, channel.vol, channel.dir,
      [&](const std::string& name) { return put_separated<Cat_Vol_Blk>(n, name); },
      [&](const std::string& name) { return put_separated<Cat_Dir_Blk>(n, name); });
}

template <class Blk>
bool Source_Sharding::put_separated(unsigned long long n, const std::string& name) {
  std::unique_ptr<Cat_Blk> block = make_separated_blk<Blk>(static_cast<unsigned short>(seq_), name);
  return block != nullptr && put(n, block);
}

bool Source_Sharding::put(unsigned long long n, std::unique_ptr<Cat_Blk>& block) {
  if (n > channel_num_) return false;
  if (put_block(*state(n).queue, block)) return true;
  ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to putq, errno=%d, %m\n"), errno), false);
}

bool Source_Sharding::put_end() {
  for (unsigned long long n = 1; n <= channel_num_; ++n) {
    std::unique_ptr<Cat_Blk> end = make_end_blk();
    if (end == nullptr || !put(n, end)) return false;
  }
  return hand_over_all();
}

bool Source_Sharding::hand_over_all() {
  for (Channel_State& channel : channels_) {
    if (hand_over(*channel.queue)) continue;
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to putq, errno=%d, %m\n"), errno), false);
  }
  return true;
}

}  // namespace MTF
