#include "mtf/writer/incremental_source_producer.h"

#include <ace/ACE.h>
#include <ace/Log_Msg.h>
#include <ace/OS_NS_errno.h>

#include <algorithm>
#include <cstring>

#include "mtf/catalog/catalog_helper.h"
#include "mtf/writer/block_producer.h"
#include "oxbase/path.h"
#include "services/assertion.h"

namespace MTF {
namespace {

constexpr std::size_t usual_directory_size = 260;

bool is_first_link(const Cat_Blk& block) {
  return (block.hdr().flags() & cat_first_link) != 0;
}

// All file-like blocks have their date in one place.
long long time_of(const Cat_Blk& block) {
  Cat_File_Blk view;
  view.set_buffer(block);
  return view.time();
}

// False for a time that no date can hold: nobody knows whether two of these are the same.
bool has_date(const Cat_Blk& block) {
  const char* date = block.data() + MTF_CAT_DIRB_BLK::date;
  return std::any_of(date, date + date_time_size, [](char byte) { return byte != 0; });
}

bool same_time(const Cat_Blk& prev, const Cat_Blk& block) {
  return has_date(block) && time_of(prev) == time_of(block);
}

bool same_file(const Cat_Blk& prev, const Cat_Blk& block) {
  if (prev.hdr().type() != block.hdr().type() || is_first_link(prev) != is_first_link(block)) {
    return false;
  }
  // The number of a file with one name says nothing: a restore or a copy gives it another.
  return !is_first_link(block) || prev.hdr().ino() == block.hdr().ino();
}

bool same_link(const Cat_Blk& prev, const Cat_Blk& block) {
  return prev.hdr().type() == block.hdr().type() && prev.hdr().ino() == block.hdr().ino();
}

}  // namespace

Incremental_Source_Producer::Incremental_Source_Producer(const std::string& catalog,
                                                         unsigned int seq,
                                                         unsigned long long channel,
                                                         Event_Handler* handler,
                                                         std::shared_ptr<ACE_Log_Msg_Callback> log)
    : Task_Base(log),
      catalog_(catalog),
      seq_(seq),
      channel_(channel),
      event_handler_(handler),
      finder_(ACE::debug()) {
  dir_.reserve(usual_directory_size);
}

int Incremental_Source_Producer::init(Cat_Blk_Queue* queue,
                                      Ref_Ptr<Writer_Hardlink_Map> hardlink_map) {
  MTF_ASSERT_NOT_NULL(queue, -1);
  MTF_ASSERT_NOT_NULL(hardlink_map.get(), -1);
  queue_ = queue;
  hardlink_map_ = hardlink_map;
  MTF_ASSERT_TRUE(finder_.open(catalog_), -1);
  separator_ = finder_.separator();
  return 1;
}

int Incremental_Source_Producer::svc_i() {
  if (compare() == 0) return 0;
  set_error(-1);
  fini();
  return -1;
}

int Incremental_Source_Producer::fini() {
  Task_Base::fini();
  if (queue_ != nullptr) queue_->deactivate();
  return 0;
}

int Incremental_Source_Producer::compare() {
  for (;;) {
    Cat_Blk* taken = nullptr;
    if (queue_->dequeue_head(taken) == -1) return -1;
    std::unique_ptr<Cat_Blk> block(taken);
    if (block->hdr().type() == block_fend) return handle_end(block) ? 0 : -1;
    if (!handle(block) || finder_.failed()) return -1;
    // The next block may have to be waited for.
    if (is_at_end_of_chunk(*queue_) && !hand_on()) return -1;
  }
}

bool Incremental_Source_Producer::handle(std::unique_ptr<Cat_Blk>& block) {
  const unsigned int type = block->hdr().type();
  switch (type) {
    case block_volb:
      return handle_vol(block);
    case block_dirb:
      return handle_dir(block);
    case block_devb:
    case block_file:
    case block_slnk:
      return handle_file_i(block);
    case block_hlnk:
      return handle_hlnk(block);
    case block_pdat:
      return pass_on(block);
    default:
      ACE_ERROR_RETURN((LM_WARNING, ACE_TEXT("Unknown catalog type: 0x%x\n"), type), true);
  }
}

bool Incremental_Source_Producer::handle_vol(std::unique_ptr<Cat_Blk>& block) {
  Cat_Vol_Blk view;
  view.set_buffer(*block);
  if (!get_device_from_vol(view, separator_, vol_)) return false;
  dir_.clear();
  return find_dir() && pass_on(block);
}

bool Incremental_Source_Producer::handle_dir(std::unique_ptr<Cat_Blk>& block) {
  Cat_Dir_Blk view;
  view.set_buffer(*block);
  return get_name_from_dir(view, separator_, dir_) && find_dir() && pass_on(block);
}

// False only if the earlier catalog isn't sound.
bool Incremental_Source_Producer::find_dir() {
  Cat_Blk scratch;
  found_dir_ = finder_.find(vol_, dir_, scratch);
  return !finder_.failed();
}

bool Incremental_Source_Producer::handle_file_i(std::unique_ptr<Cat_Blk>& block) {
  if (!leaf_name(*block, name_)) return false;
  Cat_Blk prev;
  if (is_certain(*block) && found_dir_ && finder_.find(vol_, dir_, name_, prev) &&
      same_file(prev, *block) && same_time(prev, *block) &&
      (!careful_ || prev.hdr().size() == block->hdr().size())) {
    if (!take_over(*block, prev, "handle_file_i")) return false;
    if (is_first_link(*block) && !hardlink_map_->update(block->hdr().ino(), block->hdr().seq())) {
      ACE_ERROR_RETURN(
          (LM_EMERGENCY,
           ACE_TEXT("Unexpected error in %N:%l, hardlink_map_->update( file->hdr().ino(), "
                    "file->hdr().seq()) is false:\n%?\n")),
          false);
    }
  }
  if (finder_.failed()) return false;
  count(block->hdr().seq(), block->hdr().size());
  return pass_on(block);
}

// Takes off the mark, which no catalog holds.
bool Incremental_Source_Producer::is_certain(Cat_Blk& block) const {
  const unsigned short flags = block.hdr().flags();
  if (!careful_ || (flags & cat_uncertain) == 0) return true;
  block.hdr().flags(static_cast<unsigned short>(flags & ~cat_uncertain));
  block.hdr().checksum(block.hdr().calc_checksum());
  return false;
}

bool Incremental_Source_Producer::handle_hlnk(std::unique_ptr<Cat_Blk>& block) {
  if (!leaf_name(*block, name_)) return false;
  unsigned int first_seq = 0;
  if (!hardlink_map_->get(block->hdr().ino(), first_seq)) {
    oxbase::Path_T<char> path(separator_, false);
    path /= vol_;
    path /= dir_;
    path /= name_;
    ACE_ERROR_RETURN(
        (LM_ERROR, ACE_TEXT("Failed to get ino: %Q from hardlink_map, hardlink path=%C\n"),
         block->hdr().ino(), path.str().c_str()),
        false);
  }
  Cat_Blk prev;
  const bool saved_anew =
      static_cast<unsigned short>(first_seq) == static_cast<unsigned short>(seq_);
  if (!saved_anew && found_dir_ && finder_.find(vol_, dir_, name_, prev) &&
      same_link(prev, *block) && same_time(prev, *block) &&
      !take_over(*block, prev, "handle_hlnk")) {
    return false;
  }
  if (finder_.failed()) return false;
  count(block->hdr().seq(), block->hdr().size());
  return pass_on(block);
}

// From here on the block is the earlier one, with all that the earlier catalog recorded.
bool Incremental_Source_Producer::take_over(Cat_Blk& block, const Cat_Blk& prev,
                                            const char* handler) {
  if (prev.hdr().length() != block.hdr().length()) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to %C, catalog block length mismatch\n"), handler),
                     false);
  }
  std::memcpy(block.data(), prev.data(), prev.hdr().length());
  return true;
}

// The last block waits until the whole earlier catalog has proved sound: damage in a part that no
// look-up came by must not pass unseen.
bool Incremental_Source_Producer::handle_end(std::unique_ptr<Cat_Blk>& block) {
  if (!finder_.finish() || !pass_on(block) || !hand_on()) return false;
  report(100);
  return true;
}

void Incremental_Source_Producer::count(unsigned short seq, unsigned long long size) {
  if (seq == static_cast<unsigned short>(seq_)) {
    summary_.inc_size(summary_.inc_size() + size);
    summary_.inc_file_count(summary_.inc_file_count() + 1);
  }
  summary_.file_count(summary_.file_count() + 1);
  const int percent = Block_Producer::listed_percent(summary_.file_count());
  if (percent > 0) report(percent);
}

void Incremental_Source_Producer::report(int percent) {
  if (event_handler_ == nullptr) return;
  event_handler_->total_size(channel_, summary_.inc_size(), percent);
  event_handler_->refresh_total_count(channel_, summary_.inc_file_count(), percent);
}

bool Incremental_Source_Producer::pass_on(std::unique_ptr<Cat_Blk>& block) {
  return put_block(*msg_queue(), block) || put_failed();
}

bool Incremental_Source_Producer::hand_on() {
  return hand_over(*msg_queue()) || put_failed();
}

bool Incremental_Source_Producer::put_failed() {
  ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to putq, errno=%d, %m\n"), errno), false);
}

}  // namespace MTF
