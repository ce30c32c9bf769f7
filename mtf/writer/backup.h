// One backup job: what a host drives.
#pragma once

#include <limits>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "mtf/catalog/cat_summary.h"
#include "mtf/catalog/task_base.h"
#include "mtf/writer/backup_option.h"
#include "mtf/writer/ibackup_callback.h"
#include "mtf/writer/writer_hardlink_map.h"
#include "services/event_handler.h"
#include "services/filter.h"
#include "services/metadata.h"
#include "services/no_throw.h"
#include "services/storage.h"

class ACE_Log_Msg_Callback;

namespace platform {
class Held_Directory;
}

namespace MTF {

struct Job_Settings;

// Calling order: construct, the setters, init, full or incremental, then seq, summary, err_code and
// err_msg, then clean, and remove_storage_file if the job is to be undone. All of it runs on the
// host's thread. An object runs one job. Nothing throws but the constructor, which does when memory
// is short, and the single steps; where an operation has no result, it then does what it can.
//
// A file or directory that can't be read never fails a job: the host is told by events
// (event_handler.h) and by err_code. A storage that fails does, and so does a source that isn't
// there, or a source or an exclude without an absolute path.
//
// Where full() or incremental() is false, err_code() tells that a piece or a catalog of a channel
// failed, or that nothing was saved. For every other failure it is 0 and err_msg() is empty, and
// there need not be an event: the lines say why. Those of the job's threads, which name a source
// that isn't there, go to `log`; what keeps a job from starting is said on the host's thread.
class Backup {
 public:
  // For Job_Settings::pre_action_data: there is none.
  static void* const no_pre_action_data;

  // `metadata` is the host's and must outlive the object. `log` gets the lines of the job's
  // threads; with null, and on the host's own thread, they go where the process sends its lines. A
  // host that wants all of them in one place sets the callback of its thread's ACE_Log_Msg too. A
  // job needs an event handler, and that serves one job alone (event_handler.h).
  Backup(Ref_Ptr<Event_Handler> evt_handler, Metadata& metadata,
         std::shared_ptr<ACE_Log_Msg_Callback> log);
  // Waits for all threads.
  ~Backup();
  Backup(const Backup&) = delete;
  Backup& operator=(const Backup&) = delete;

  // Adds a native path, such as `/home`, or a system path, such as `X:\data`. True; without memory
  // false, and the job fails for want of it.
  bool add_source(const std::string& path);
  // Whether file content is read as backup records (the default) or as plain bytes.
  void backup_read(bool on) { opt_.backup_read = on; }
  // Whether an incremental job looks for changes that the second hides; off at construction. Then
  // it saves a file also if
  //   - its size isn't that of its entry in the base's catalog, or
  //   - it was modified, or its status changed, in or behind the second in which the base began to
  //     look at its sources. So what is written while a job runs is saved by the next, a date in
  //     the future makes a file be saved each time, and so does what changes the status of all
  //     files, as a `chown` does.
  // Each careful job notes that second in its metadata (`began`), by the clock of this machine's
  // file systems. Of a base that has no such note, or a later one than the job's own time, nothing
  // is known, and all files are saved. What else can hide a change: a clock that is set back, a
  // file server whose clock lags, dates coarser than a second, and a snapshot, which is older than
  // the job that reads it.
  // Sources of a host: what it lists has to have the size that it later gives; `st_ctime` counts
  // where the host gives one. A source by itself and the blocks of a host's lister have none.
  void careful(bool on) { careful_ = on; }
  // Whether symbolic links, the further names of hard-linked files, devices and FIFOs are saved
  // too; else (the default) each is left out with a line. No link is ever followed.
  void save_links(bool on) { opt_.save_links = on; }
  // Whether a few threads of each channel have the system read the next files of local sources
  // ahead, while reads wait for a disk; off from the start. What is stored and told is the same.
  void read_ahead(bool on) { opt_.read_ahead = on; }
  // How many threads of each channel compress content; 1 (the default) is the channel's own. With
  // more, local files of up to 64 KiB are read up to 31 files ahead of their turn, and the memory
  // of the channel grows by up to 4 MiB. Order and format on the storage are the same with any
  // number.
  void compression_threads(int threads) { opt_.compression_threads = threads; }
  // Directories whose content is left out, in either form; each is saved itself, empty. A file that
  // is a source is saved all the same. Not owned; must live until full() has begun. With no list,
  // or an empty one, the default list holds (source_list.h).
  void exclude_list(const std::list<std::string>* list) { exclude_list_ = list; }
  void reparse_point_types(unsigned int mask) { reparse_point_types_ = mask; }

  // Takes what the job needs; false, with a line in the log, for what it can't work with.
  bool init(const Job_Settings& settings);
  // The same, one by one, in the order of the record.
  bool init(const char* minor_resource_id, const IFilter* filter, unsigned int base_seq,
            unsigned int seq, unsigned long long channels, unsigned short compression_method,
            Sparse_Method sparse_method, Ref_Ptr<Channel_Factory> channel_factory,
            Ref_Ptr<IBackup_Callback_Factory> callback_factory,
            const std::map<std::string, std::string>* volume_map, void* pre_action_data,
            int compression_level, const char* cache_dir, int threads);

  // Runs a full job to its end. False if it failed, or if it was cancelled while a source was read.
  // One that was cancelled later gives true, and its pieces are cut: ask the event handler's
  // is_canceling() as well.
  bool full();

  // Runs an incremental job to its end: saves each file whose date of modification isn't, to the
  // second, that of its entry in job `base_seq` of init() (careful() looks closer), and takes the
  // rest from that job's catalogs, which the channels give. False as for full(), and if the
  // base had another number of channels or one of its catalogs can't be had or isn't sound. What
  // the job left on the storage then is remove_storage_file()'s to take back.
  bool incremental();

  // The steps of a job, in their order; a host calls full() or incremental(), which give
  // `incremental` as false or true.
  bool prepare(bool incremental);
  bool make_backup_task();
  bool make_source(bool incremental);
  bool make_source_sharding(bool incremental);
  bool make_source_producer(bool incremental);
  bool make_incremental_source_producer();
  bool make_incremental_source_producer_i(unsigned long long channel);
  bool activate_task();
  void wait_task();
  bool execute();
  bool complete();

  // Frees what the job holds, closes its channels and deletes its working files. Can be called at
  // any time after construction, and twice.
  void clean();

  // Deletes all pieces of the job's number on the storage, by a channel of its own, whoever wrote
  // them: a host that must keep what has this number already doesn't call it. None where the job
  // never got a number of its own, since full() or incremental() was not called or refused to
  // start.
  void remove_storage_file();

  unsigned int seq() const { return seq_; }
  const Cat_Summary& summary() const { return summary_; }
  unsigned int err_code() const { return err_code_; }  // a Backup_Error (backup_context.h)
  const std::string& err_msg() const { return err_msg_; }

 private:
  // What `step` returns; false, with a line, for an exception.
  template <class Step>
  static bool safely(Step step) {
    return no_throw("Job", false, step);
  }

  void set_options(const Job_Settings& settings);
  void set_channels(unsigned long long channels);
  bool run(bool incremental);
  bool make_one_task(unsigned long long index, unsigned long long channel);
  bool make_callback_producer(Event_Handler* handler);
  bool make_file_system_producer(Event_Handler* handler);
  bool keep_producer(Task_Base* producer);
  bool producer_ready(int init_result);
  bool make_callback(unsigned long long channel, Ref_Ptr<IBackup_Callback>& callback);
  bool start_tasks();
  void deactivate_queues();
  bool remove_working_files() const;
  bool activate(Task_Base& task, const char* name);
  bool judge(const Task_Base& task, const char* kind);
  void count_untold();
  void add_up(const Cat_Summary& channel, bool first);
  bool fetch_base_catalog(unsigned long long channel, std::string& path);
  bool check_base(const std::string& path, unsigned long long channel);
  void take_began(const Metadata_Record& base, unsigned long long channel);
  // The name of the piece of the base that an incremental job reads.
  std::string base_catalog(unsigned long long channel) const;
  bool base_failed(unsigned long long channel, const std::string& message);
  bool send_making(const char* name, bool result, unsigned long long channel,
                   const std::string& message);
  void send_event(int code, const json_spirit::Document& document);

  Metadata& metadata_;
  Ref_Ptr<Event_Handler> evt_handler_;
  std::shared_ptr<ACE_Log_Msg_Callback> log_callback_;
  Backup_Option opt_;
  Ref_Ptr<Writer_Hardlink_Map> hardlink_map_;
  Ref_Ptr<Task_Base> full_source_producer_;
  Ref_Ptr<Task_Base> source_sharding_;
  std::vector<Ref_Ptr<Task_Base>> incremental_source_producers_;
  std::vector<Ref_Ptr<Task_Base>> backup_tasks_;
  std::list<std::string> sources_;
  const IFilter* filter_ = nullptr;
  unsigned int base_seq_ = 0;
  unsigned int seq_ = 0;
  unsigned long long channel_num_ = 1;
  Ref_Ptr<IBackup_Callback_Factory> callback_factory_;
  const std::map<std::string, std::string>* volume_map_ = nullptr;
  void* pre_action_data_ = no_pre_action_data;
  Cat_Summary summary_;
  Ref_Ptr<Channel_Factory> channel_factory_;
  std::vector<Ref_Ptr<Channel>> channels_;
  const std::list<std::string>* exclude_list_ = nullptr;
  unsigned int reparse_point_types_ = 0;
  bool careful_ = false;
  long long began_ = 0;  // the second in which this job did
  // What changed from this second on may have passed the base unseen; that of all channels.
  long long uncertain_since_ = std::numeric_limits<long long>::max();
  unsigned int err_code_ = 0;
  std::string err_msg_;
  bool sources_whole_ = true;  // false once there was no memory for a source
  bool numbered_ = false;      // seq_ is the number of this object's own job
  // That of the working files, from the start of the job to the end of its threads.
  std::unique_ptr<platform::Held_Directory> held_directory_;
};

// What a job needs beside its sources. Only the name and the channels have to be set. The pointers
// are not owned; what they point to must outlive the job, but for the two strings.
struct Job_Settings {
  // Name stem of everything that the job stores; neither null nor empty. The pieces are
  // `STEM.SEQ.CHANNEL.mtf` and `.cat`, with channel 0 alone or 1 to N.
  const char* minor_resource_id = nullptr;
  const IFilter* filter = nullptr;
  // The job to compare with, for an incremental job.
  unsigned int base_seq = 0;
  // Number of the last job; this one gets seq + 1, up to 65535: full() and incremental() refuse to
  // start a job with a higher number. The pieces of a job that has the number already are
  // overwritten; find_jobs() (mtf/reader/jobs.h) tells the numbers.
  unsigned int seq = 0;
  // Number of parallel streams; 0 counts as 1.
  unsigned long long channels = 1;
  // A Compression_Method (services/compression.h).
  unsigned short compression_method = 0;
  Sparse_Method sparse_method = sparse_default;
  // Must not be null.
  Ref_Ptr<Channel_Factory> channel_factory;
  // Null for sources of the file system.
  Ref_Ptr<IBackup_Callback_Factory> callback_factory;
  // Volume to shadow volume.
  const std::map<std::string, std::string>* volume_map = nullptr;
  // An open handle (on POSIX the descriptor, as a pointer) whose data is read to its end and
  // stored; stays open.
  void* pre_action_data = Backup::no_pre_action_data;
  int compression_level = 1;
  // Native directory for working files; null or empty for the default. A job has a directory of its
  // own in it, named by the stem alone. full() and incremental() refuse to start while another job
  // of that stem runs there, and clean() then leaves its files alone. A file system without locks
  // can't tell, and there the host must take care.
  const char* cache_dir = nullptr;
  // That scan the sources.
  int threads = 1;
};

}  // namespace MTF
