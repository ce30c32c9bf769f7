// The stage that an incremental job has in front of each channel.
#include <ace/Log_Msg.h>
#include <ace/OS_NS_errno.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "mtf/catalog/source_processor.h"
#include "mtf/writer/backup.h"
#include "mtf/writer/block_producer.h"
#include "mtf/writer/incremental_source_producer.h"
#include "mtf/writer/source_sharding.h"
#include "services/assertion.h"
#include "services/piece_name.h"
#include "services/working_path.h"

namespace MTF {
namespace {

constexpr const char* stage = "incremental_source_producer";

unsigned long long channel_count(unsigned long long recorded) {
  return recorded == 0 ? 1 : recorded;
}

}  // namespace

bool Backup::incremental() {
  if (base_seq_ == 0 || seq_ == 0) {
    ACE_ERROR_RETURN(
        (LM_ERROR, ACE_TEXT("Failed to incremental backup with, base_seq=%d, seq = %d\n"),
         base_seq_, seq_),
        false);
  }
  return run(true);
}

bool Backup::make_incremental_source_producer() {
  if (backup_tasks_.size() < channel_num_) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Backup task size is smaller than channel_num_\n")),
                     false);
  }
  if (channel_num_ < 2) return make_incremental_source_producer_i(0);
  for (unsigned long long channel = 1; channel <= channel_num_; ++channel) {
    if (!make_incremental_source_producer_i(channel)) return false;
  }
  return true;
}

bool Backup::make_incremental_source_producer_i(unsigned long long channel) {
  std::string path;
  if (!fetch_base_catalog(channel, path) || !check_base(path, channel)) return false;
  auto* producer = new (std::nothrow)
      Incremental_Source_Producer(path, seq_, channel, evt_handler_.get(), log_callback_);
  const auto task = share<Task_Base>(producer);
  if (task.get() == nullptr) return false;
  incremental_source_producers_.push_back(task);
  producer->shown_name(base_catalog(channel));
  producer->careful(careful_);
  if (careful_) {
    static_cast<Block_Producer&>(*full_source_producer_).uncertain_since(uncertain_since_);
  }
  producer->msg_queue(backup_tasks_[channel == 0 ? 0 : channel - 1]->msg_queue());
  Cat_Blk_Queue* const input =
      channel == 0 ? full_source_producer_->msg_queue()
                   : static_cast<Source_Sharding&>(*source_sharding_).queue(channel);
  if (producer->init(input, hardlink_map_) == -1) return false;
  producer->set_queue_marks();
  return send_making(stage, true, channel, "Success");
}

// The channel that fetches the earlier catalog is the one that the job then writes to.
bool Backup::fetch_base_catalog(unsigned long long channel, std::string& path) {
  const std::string name = base_catalog(channel);
  Channel& from = *channels_[channel == 0 ? 0 : channel - 1];
  if (!from.open(name.c_str(), Channel::mode_read, 0)) return base_failed(channel, from.err_msg());
  IReader* const reader = from.reader();
  MTF_ASSERT_NOT_NULL(reader, false);
  if (!prev_cat_path(opt_.job_tmp_dir, opt_.option_path, opt_.minor_resource_id, channel, path)) {
    return false;
  }
  const bool copied = reader_to_file(reader, path);
  const int error = copied ? 0 : errno;
  if (from.close() && copied) return true;
  const std::string message = from.err_msg();
  // A copy that failed on this side is no fault of the channel's.
  return base_failed(channel, message.empty() && error != 0 ? std::strerror(error) : message);
}

// A file stays on its channel only as long as the number of channels stays the same.
bool Backup::check_base(const std::string& path, unsigned long long channel) {
  Source_Processor catalog(false);
  catalog.shown_name(base_catalog(channel));
  if (!catalog.open(path)) return base_failed(channel, "The catalog can't be used");
  Metadata_Record base;
  if (!read_metadata(catalog.metadata(), base)) {
    return base_failed(channel, "The catalog doesn't say how many channels its job has");
  }
  if (base.seq != base_seq_) {
    return base_failed(channel, "The catalog is that of job " + std::to_string(base.seq));
  }
  if (careful_) take_began(base, channel);
  if (channel_count(base.channels) == channel_num_) return true;
  return base_failed(channel, "Job " + std::to_string(base_seq_) + " has " +
                                  std::to_string(channel_count(base.channels)) +
                                  " channels, this job has " + std::to_string(channel_num_));
}

void Backup::take_began(const Metadata_Record& base, unsigned long long channel) {
  if (base.began.has_value() && *base.began <= began_) {
    uncertain_since_ = std::min(uncertain_since_, *base.began);
    return;
  }
  uncertain_since_ = std::numeric_limits<long long>::min();
  if (channel > 1) return;
  ACE_ERROR((LM_WARNING, ACE_TEXT("It isn't known when job %d began, all files are saved anew\n"),
             base_seq_));
}

std::string Backup::base_catalog(unsigned long long channel) const {
  std::string name;
  cat_name(opt_.minor_resource_id, base_seq_, channel, name);
  return name;
}

bool Backup::base_failed(unsigned long long channel, const std::string& message) {
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to use earlier catalog, piece=%C: %C\n"),
             base_catalog(channel).c_str(), message.c_str()));
  return send_making(stage, false, channel, message);
}

}  // namespace MTF
