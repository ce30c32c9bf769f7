#include "mtf/writer/media_writer.h"

#include <ace/Log_Msg.h>
#include <ace/OS_NS_errno.h>

#include "mtf/writer/data_set.h"
#include "mtf/writer/mbc_writer_factory.h"
#include "services/assertion.h"
#include "services/json_spirit.h"
#include "services/piece_name.h"

namespace MTF {
namespace {

// The blocks of a media hold their own sizes in 16 bits, and addresses are lengths shifted.
bool block_sizes_fit(const Backup_Option& opt) {
  const auto fits = [](unsigned int size, unsigned long long shift) {
    return shift < 16 && size == 1U << shift;
  };
  if (fits(opt.format_logical_block_size, opt.fla_shift) &&
      fits(opt.physical_block_size, opt.pba_shift) && opt.fla_shift <= opt.pba_shift) {
    return true;
  }
  ACE_ERROR_RETURN(
      (LM_ERROR,
       ACE_TEXT("Block sizes don't fit, format logical block=%u shift=%u, physical block=%u "
                "shift=%Q\n"),
       opt.format_logical_block_size, opt.fla_shift, opt.physical_block_size, opt.pba_shift),
      false);
}

}  // namespace

Media_Writer::Media_Writer(const Backup_Option& opt, unsigned long long channel_index)
    : opt_(opt),
      channel_index_(channel_index),
      ctx_(opt.pba_shift, opt.fla_shift),
      catalog_(opt),
      media_header_(&opt_, &ctx_),
      media_end_(&opt_, &ctx_) {}

Media_Writer::~Media_Writer() = default;

bool Media_Writer::open(Ref_Ptr<Channel> channel, unsigned int seq,
                        Ref_Ptr<Writer_Hardlink_Map> hardlink_map,
                        Ref_Ptr<Event_Handler> evt_handler,
                        const std::map<std::string, std::string>* volume_map) {
  MTF_ASSERT_NOT_NULL(channel.get(), false);
  MTF_ASSERT_NOT_NULL(hardlink_map.get(), false);
  if (!block_sizes_fit(opt_)) return false;
  channel_ = channel;
  ctx_.hardlink_map = hardlink_map;
  ctx_.volume_map = volume_map;
  ctx_.seq = static_cast<unsigned short>(seq);
  ctx_.channel = channel_index_;
  return open_catalog(evt_handler.get()) && open_media_based_catalog(evt_handler);
}

bool Media_Writer::open_catalog(Event_Handler* evt_handler) {
  if (catalog_.open(channel_index_)) return true;
  const int error = ACE_OS::last_error();
  ctx_.err_code = error_catalog_open;
  ctx_.err_msg = "Failed to create catalog in cache.";
  if (evt_handler != nullptr) {
    evt_handler->handle_event(
        event_catalog_failed,
        json_spirit::Document{{"result", false}, {"channel", channel_index_}, {"errno", error}});
  }
  return false;
}

bool Media_Writer::open_media_based_catalog(const Ref_Ptr<Event_Handler>& evt_handler) {
  IMBC_Writer* tmp = MBC_Writer_Factory(&opt_, &ctx_).create(opt_.media_based_catalog_type);
  MTF_ASSERT_NOT_NULL(tmp, false);
  mbc_writer_.reset(tmp);
  evt_handler_ = evt_handler;
  if (mbc_writer_->open()) return true;
  ctx_.err_code = error_catalog_open;
  ctx_.err_msg = "Failed to open media based catalog.";
  return false;
}

bool Media_Writer::add_data_set(Data_Set* data_set) {
  MTF_ASSERT_NOT_NULL(data_set, false);
  if (!data_set->init(&opt_, &ctx_, mbc_writer_.get(), &catalog_)) return false;
  data_sets_.push_back(data_set);
  return true;
}

bool Media_Writer::write() {
  MTF_ASSERT_NOT_NULL(mbc_writer_.get(), false);
  return write_media() && write_catalog();
}

bool Media_Writer::write_media() {
  mtf_name(opt_.minor_resource_id, ctx_.seq, channel_index_, (opt_.option_flags & 1) != 0,
           mtf_piece_name_);
  IWriter* writer = open_piece(mtf_piece_name_);
  if (writer == nullptr) return false;
  if (!media_header_.write(*writer, *mbc_writer_, catalog_)) return ctx_.write_failed(*writer);
  for (Data_Set* data_set : data_sets_) {
    if (!data_set->write(*writer)) return false;
  }
  if (!media_end_.write(*writer) || !channel_->close()) {
    return write_failed(*writer, mtf_piece_name_);
  }
  catalog_.set_storage_size(ctx_.length);
  mtf_size_ = writer->size();
  return true;
}

bool Media_Writer::write_catalog() {
  cat_name(opt_.minor_resource_id, ctx_.seq, channel_index_, (opt_.option_flags & 1) != 0,
           cat_piece_name_);
  IWriter* writer = open_piece(cat_piece_name_);
  if (writer == nullptr) return false;
  if (!catalog_.write(*writer) || !channel_->close()) {
    return write_failed(*writer, cat_piece_name_);
  }
  cat_size_ = writer->size();
  catalog_.set_storage_size(mtf_size_ + cat_size_);
  return true;
}

IWriter* Media_Writer::open_piece(const std::string& name) {
  if (!channel_->open(name.c_str(), Channel::mode_write, 0)) {
    ctx_.err_code = error_piece_open;
    ctx_.err_msg = channel_->err_msg();
    send_piece_event(event_piece_open_failed, name);
    return nullptr;
  }
  IWriter* writer = channel_->writer();
  MTF_ASSERT_NOT_NULL(writer, nullptr);
  return writer;
}

bool Media_Writer::write_failed(IWriter& writer, const std::string& name) {
  ctx_.write_failed(writer);
  send_piece_event(event_piece_write_failed, name);
  return false;
}

void Media_Writer::send_piece_event(int code, const std::string& name) {
  if (evt_handler_.get() == nullptr) return;
  evt_handler_->handle_event(code, json_spirit::Document{{"result", false},
                                                         {"channel", channel_index_},
                                                         {"name", name},
                                                         {"message", channel_->err_msg()}});
}

}  // namespace MTF
