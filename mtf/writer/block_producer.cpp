#include "mtf/writer/block_producer.h"

#include <ace/Log_Msg.h>
#include <ace/OS_NS_errno.h>

#include <algorithm>
#include <new>

#include "mtf/writer/file_type.h"
#include "mtf/writer/queue_blocks.h"

namespace MTF {
namespace {

constexpr const char* pre_action_name = "pre_action_data";

}  // namespace

Block_Producer::Block_Producer(unsigned short seq, bool pre_action_data, Event_Handler* handler,
                               std::shared_ptr<ACE_Log_Msg_Callback> log)
    : Task_Base(log), seq_(seq), pre_action_data_(pre_action_data), event_handler_(handler) {}

int Block_Producer::svc_i() {
  const int result = produce();
  if (result == -1) {
    // What came before the failure is in the queue, whoever still reads it.
    hand_over(*msg_queue());
    set_error(-1);
    msg_queue()->deactivate();
  }
  return result;
}

bool Block_Producer::write_item(unsigned int type, const std::string& name) {
  return write_item(type, name, 0, 0, 0, 0);
}

bool Block_Producer::write_item(unsigned int type, const std::string& name, long long mtime,
                                unsigned long long size, unsigned short flags,
                                unsigned long long ino) {
  if (make_item(type, name, mtime, size, flags, ino)) return true;
  ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to write item, type=%X, name=%.*s\n"), type,
                    static_cast<int>(name.size()), name.c_str()),
                   false);
}

bool Block_Producer::make_item(unsigned int type, const std::string& name, long long mtime,
                               unsigned long long size, unsigned short flags,
                               unsigned long long ino) {
  switch (type) {
    case block_volb:
      return put_volume(name, mtime);
    case block_dirb:
      return put_block(make_separated_blk<Cat_Dir_Blk>(seq_, name));
    case block_devb:
      return put_file_like<Cat_Devb_Blk>(name, mtime, 0, flags, ino);
    case block_file:
    case type_rdup:
      return put_file_like<Cat_File_Blk>(name, mtime, size, flags, ino);
    case block_hlnk:
      return put_file_like<Cat_HLnk_Blk>(name, mtime, size, flags, ino);
    case block_slnk:
      return put_file_like<Cat_SLnk_Blk>(name, mtime, size, flags, ino);
    case block_fend:
      return put_block(make_end_blk());
    default:
      return false;
  }
}

bool Block_Producer::put_volume(const std::string& name, long long mtime) {
  return put_block(make_separated_blk<Cat_Vol_Blk>(seq_, name)) && put_pre_action(mtime);
}

bool Block_Producer::put_pre_action(long long mtime) {
  if (!pre_action_data_) return true;
  pre_action_data_ = false;
  return put_file_like<Cat_PDat_Blk>(pre_action_name, mtime, 0, 0, 0);
}

template <class Blk>
bool Block_Producer::put_file_like(const std::string& name, long long mtime,
                                   unsigned long long size, unsigned short flags,
                                   unsigned long long ino) {
  std::unique_ptr<Blk> block = make_room<Blk>(name);
  if (block == nullptr || !block->set(seq_, name, mtime, size, flags, ino)) return false;
  count_file(size);
  return put_block(std::move(block));
}

void Block_Producer::count_file(unsigned long long size) {
  summary_.inc_size(summary_.inc_size() + size);
  summary_.file_count(summary_.file_count() + 1);
  if (event_handler_ != nullptr) report_listing();
}

void Block_Producer::report_listing() {
  const int percent = listed_percent(summary_.file_count());
  if (percent > 0) report(percent);
}

int Block_Producer::listed_percent(unsigned long long count, unsigned long long per_percent,
                                   int highest) {
  if (count <= per_percent) return 0;
  return static_cast<int>(
      std::min(static_cast<long long>(count / per_percent), static_cast<long long>(highest)));
}

void Block_Producer::report(int percent) {
  event_handler_->total_size(0, summary_.inc_size(), percent);
  event_handler_->refresh_total_count(summary_.file_count(), percent);
}

bool Block_Producer::write_end() {
  if (!write_item(block_fend, "") || !(hand_over(*msg_queue()) || put_failed())) return false;
  on_listing_end();
  if (event_handler_ != nullptr) report(100);
  return true;
}

bool Block_Producer::put_block(std::unique_ptr<Cat_Blk> block) {
  return block != nullptr && (MTF::put_block(*msg_queue(), block) || put_failed());
}

bool Block_Producer::end_directory() {
  return hand_over_if_awaited(*msg_queue()) || put_failed();
}

bool Block_Producer::put_failed() {
  ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to putq, errno=%d, %m\n"), errno), false);
}

}  // namespace MTF
