#include "mtf/writer/backup.h"

#include <ace/Log_Msg.h>

#include <new>
#include <string_view>

#include "mtf/writer/backup_task.h"
#include "mtf/writer/callback_source_producer.h"
#include "mtf/writer/source_producer.h"
#include "mtf/writer/source_sharding.h"
#include "platform/file_clock.h"
#include "platform/held_directory.h"
#include "services/assertion.h"
#include "services/hash.h"
#include "services/json_spirit.h"
#include "services/settings.h"
#include "services/working_path.h"

namespace MTF {
namespace {

// Blocks and the names of pieces hold 16 bits.
constexpr unsigned int last_seq = 65535;

}  // namespace

void* const Backup::no_pre_action_data = reinterpret_cast<void*>(-1);

Backup::Backup(Ref_Ptr<Event_Handler> evt_handler, Metadata& metadata,
               std::shared_ptr<ACE_Log_Msg_Callback> log)
    : metadata_(metadata), evt_handler_(evt_handler), log_callback_(log) {
  if (!can_log()) throw std::bad_alloc();
  opt_.job_tmp_dir = MTF_Params::instance().job_tmp_dir();
}

Backup::~Backup() {
  wait_task();
}

bool Backup::add_source(const std::string& path) {
  const bool added = safely([&] {
    sources_.push_back(path);
    return true;
  });
  sources_whole_ = sources_whole_ && added;
  return added;
}

bool Backup::init(const char* minor_resource_id, const IFilter* filter, unsigned int base_seq,
                  unsigned int seq, unsigned long long channels, unsigned short compression_method,
                  Sparse_Method sparse_method, Ref_Ptr<Channel_Factory> channel_factory,
                  Ref_Ptr<IBackup_Callback_Factory> callback_factory,
                  const std::map<std::string, std::string>* volume_map, void* pre_action_data,
                  int compression_level, const char* cache_dir, int threads) {
  return init({minor_resource_id, filter, base_seq, seq, channels, compression_method,
               sparse_method, channel_factory, callback_factory, volume_map, pre_action_data,
               compression_level, cache_dir, threads});
}

bool Backup::init(const Job_Settings& settings) {
  return safely([&] {
    const char* const minor_resource_id = settings.minor_resource_id;
    const Ref_Ptr<Channel_Factory>& channel_factory = settings.channel_factory;
    MTF_ASSERT_NOT_NULL(minor_resource_id, false);
    MTF_ASSERT_NOT_EMPTY(std::string_view(minor_resource_id), "minor_resource_id", false);
    MTF_ASSERT_NOT_NULL(channel_factory.get(), false);
    filter_ = settings.filter;
    base_seq_ = settings.base_seq;
    seq_ = settings.seq;
    channel_factory_ = channel_factory;
    callback_factory_ = settings.callback_factory;
    volume_map_ = settings.volume_map;
    pre_action_data_ = settings.pre_action_data;
    set_options(settings);
    hardlink_map_ = make_writer_hardlink_map();
    MTF_ASSERT_NOT_NULL(hardlink_map_.get(), false);
    channel_factory_->bytes_per_blk(opt_.physical_block_size);
    set_channels(settings.channels);
    return true;
  });
}

void Backup::set_options(const Job_Settings& settings) {
  opt_.minor_resource_id = settings.minor_resource_id;
  opt_.compression_method = settings.compression_method;
  opt_.sparse_method = settings.sparse_method;
  opt_.compression_level = settings.compression_level;
  const char* const dir = settings.cache_dir;
  if (dir != nullptr && *dir != '\0') opt_.job_tmp_dir = dir;
  opt_.threads = settings.threads;
}

void Backup::set_channels(unsigned long long channels) {
  if (channels > 1) {
    channel_num_ = channels;
    metadata_.set_channels(static_cast<long long>(channel_num_));
    metadata_.set_hash_algorithm(hash_algorithm_vale_to_name(hash_xxh32));
  } else {
    metadata_.set_channels(0);
  }
  if (evt_handler_.get() != nullptr) evt_handler_->set_channels(channels == 0 ? 1 : channels);
}

bool Backup::full() {
  return run(false);
}

bool Backup::run(bool incremental) {
  return safely([&] { return prepare(incremental) && execute(); });
}

bool Backup::prepare(bool incremental) {
  MTF_ASSERT_NOT_NULL(channel_factory_.get(), false);
  if (seq_ >= last_seq) {
    ACE_ERROR_RETURN(
        (LM_ERROR, ACE_TEXT("No job can follow job %u, seq goes up to %u\n"), seq_, last_seq),
        false);
  }
  if (evt_handler_.get() != nullptr && evt_handler_->is_of_failed_job()) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("The event handler is that of a job that failed\n")),
                     false);
  }
  held_directory_ = std::make_unique<platform::Held_Directory>();
  if (!hold_working_directory(opt_.job_tmp_dir, opt_.minor_resource_id, *held_directory_)) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Another job '%C' has its working files in '%C'\n"),
                      opt_.minor_resource_id.c_str(), opt_.job_tmp_dir.c_str()),
                     false);
  }
  ++seq_;
  numbered_ = true;
  metadata_.set_seq(seq_);
  began_ = platform::file_clock_second();
  uncertain_since_ = std::numeric_limits<long long>::max();
  metadata_.set_began(careful_ ? std::optional<long long>(began_) : std::nullopt);
  // Behind the count: what is taken back after a failure are the pieces of this job.
  MTF_ASSERT_TRUE(sources_whole_, false);
  if (!safely([this] { return make_backup_task(); })) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to make backup task\n")), false);
  }
  return make_source(incremental) && activate_task();
}

bool Backup::make_backup_task() {
  const unsigned long long first = channel_num_ > 1 ? 1 : 0;
  for (unsigned long long i = 0; i < channel_num_; ++i) {
    if (!make_one_task(i, first + i)) return false;
  }
  return true;
}

bool Backup::make_one_task(unsigned long long index, unsigned long long channel_number) {
  Ref_Ptr<Channel> channel = channel_factory_->create();
  MTF_ASSERT_NOT_NULL(channel.get(), false);
  channels_.push_back(channel);
  auto* task = new (std::nothrow) Backup_Task(opt_, metadata_, channel_number, log_callback_);
  const auto shared = share<Task_Base>(task);
  if (shared.get() == nullptr) return false;
  backup_tasks_.push_back(shared);
  void* const handle = index == 0 ? pre_action_data_ : no_pre_action_data;
  Ref_Ptr<IBackup_Callback> callback;
  if (!make_callback(channel_number, callback)) return false;
  if (task->init(channel, seq_, evt_handler_, hardlink_map_, callback, volume_map_, handle) == -1) {
    return send_making("backup", false, channel_number, "Failed to init task");
  }
  return send_making("backup", true, channel_number, "Success");
}

bool Backup::make_callback(unsigned long long channel, Ref_Ptr<IBackup_Callback>& callback) {
  if (callback_factory_.get() == nullptr) return true;
  callback = callback_factory_->create();
  if (callback.get() != nullptr) return true;
  return send_making("backup", false, channel, "Failed to make backup handler");
}

bool Backup::make_source(bool incremental) {
  if (!safely([&] { return make_source_sharding(incremental); })) {
    send_event(event_task_made, {{"result", false},
                                 {"name", "source_sharding"},
                                 {"channel", nullptr},
                                 {"message", "Failed"}});
    return false;
  }
  if (!safely([&] { return make_source_producer(incremental); })) {
    send_event(event_task_made, {{"result", false},
                                 {"name", "full_source_producer"},
                                 {"channle", nullptr},
                                 {"message", "Failed"}});
    return false;
  }
  return !incremental || make_incremental_source_producer();
}

bool Backup::make_source_sharding(bool incremental) {
  if (channel_num_ < 2) return true;
  auto* sharding = new (std::nothrow) Source_Sharding(seq_, log_callback_);
  source_sharding_ = share<Task_Base>(sharding);
  if (source_sharding_.get() == nullptr) return false;
  if (sharding->init(channel_num_, hardlink_map_) == -1) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to init source sharding\n")), false);
  }
  for (unsigned long long i = 0; !incremental && i < channel_num_; ++i) {
    backup_tasks_[i]->msg_queue(sharding->queue(i + 1));
  }
  sharding->set_queue_marks();
  send_event(event_task_made,
             {{"result", true}, {"name", "source_sharding"}, {"message", "Success"}});
  return true;
}

bool Backup::make_source_producer(bool incremental) {
  Event_Handler* handler = incremental ? nullptr : evt_handler_.get();
  sources_.sort();
  const bool made = callback_factory_.get() != nullptr ? make_callback_producer(handler)
                                                       : make_file_system_producer(handler);
  if (!made) return false;
  Task_Base& producer = *full_source_producer_;
  if (channel_num_ > 1) {
    source_sharding_->msg_queue(producer.msg_queue());
  } else if (!incremental) {
    backup_tasks_[0]->msg_queue(producer.msg_queue());
  }
  producer.set_queue_marks();
  send_event(event_task_made,
             {{"result", true}, {"name", "full_source_producer"}, {"message", "Success"}});
  return true;
}

bool Backup::make_callback_producer(Event_Handler* handler) {
  auto* producer = new (std::nothrow)
      Callback_Source_Producer(static_cast<unsigned short>(seq_),
                               pre_action_data_ != no_pre_action_data, handler, log_callback_);
  if (!keep_producer(producer)) return false;
  producer->save_links(opt_.save_links);
  const Ref_Ptr<IBackup_Callback> callback = callback_factory_->create();
  MTF_ASSERT_NOT_NULL(callback.get(), false);
  return producer_ready(producer->init(&sources_, filter_, hardlink_map_, callback));
}

bool Backup::make_file_system_producer(Event_Handler* handler) {
  auto* producer = new (std::nothrow)
      Source_Producer(static_cast<unsigned short>(seq_), pre_action_data_ != no_pre_action_data,
                      handler, log_callback_);
  if (!keep_producer(producer)) return false;
  producer->save_links(opt_.save_links);
  if (exclude_list_ != nullptr && !exclude_list_->empty()) producer->exclude_list(*exclude_list_);
  return producer_ready(producer->init(&sources_, filter_, hardlink_map_, volume_map_,
                                       opt_.job_tmp_dir, opt_.threads, reparse_point_types_));
}

bool Backup::keep_producer(Task_Base* producer) {
  full_source_producer_ = share(producer);
  return full_source_producer_.get() != nullptr;
}

bool Backup::producer_ready(int init_result) {
  if (init_result != -1) return true;
  ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to init source producer\n")), false);
}

bool Backup::send_making(const char* name, bool result, unsigned long long channel,
                         const std::string& message) {
  send_event(event_task_made, {{"result", result},
                               {"name", name},
                               {"channel", channel == 0 ? 1 : channel},
                               {"message", message}});
  return result;
}

void Backup::send_event(int code, const json_spirit::Document& document) {
  if (evt_handler_.get() != nullptr) evt_handler_->handle_event(code, document);
}

}  // namespace MTF
