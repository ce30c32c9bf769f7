// The base of the source producers. It turns sources into catalog blocks, counts these, and puts
// them on the queue.
#pragma once

#include <atomic>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "mtf/catalog/cat_summary.h"
#include "mtf/catalog/catalog_helper.h"
#include "mtf/catalog/task_base.h"
#include "mtf/writer/writer_hardlink_map.h"
#include "oxbase/directory_iterator.h"
#include "services/event_handler.h"
#include "services/source_list.h"

namespace MTF {

// The stream on the queue is (VOLB (PDAT, the first time) (DIRB | file-like block)*)+ FEND. A
// file-like block carries a leaf name and belongs to the last DIRB before it. After a failure there
// is no FEND and the queue is deactivated.
class Block_Producer : public Task_Base {
 public:
  int svc_i() override;

  // Marks as cat_uncertain what was changed at or behind this second, by its modification or its
  // status change, so far as it is known. Ahead of the task's start.
  void uncertain_since(long long second) { uncertain_since_ = second; }
  // Lets FIFOs pass as devices (Backup_Option::save_links). Called ahead of the start.
  void save_links(bool on) { save_links_ = on; }

  // What was left out and counted while there was no event handler to count it.
  unsigned long long untold_dirs() const { return untold_dirs_; }
  unsigned long long untold_files() const { return untold_files_; }

  // How far a listing of `count` files has come: one percent for each `per_percent` of them, at
  // most `highest`, and 0 up to the first.
  static constexpr unsigned long long files_per_percent = 10000;
  static constexpr int highest_percent = 90;
  static int listed_percent(unsigned long long count,
                            unsigned long long per_percent = files_per_percent,
                            int highest = highest_percent);

 protected:
  using Entry = oxbase::Directory_Entry_T<char>;
  // What becomes of a source or entry; a failure ends the listing.
  enum class Verdict { take, skip, fail };

  // `pre_action_data` asks for a PDAT block behind the first volume. `handler` may be null and is
  // not owned.
  Block_Producer(unsigned short seq, bool pre_action_data, Event_Handler* handler,
                 std::shared_ptr<ACE_Log_Msg_Callback> log);

  // Puts the whole stream on the queue; 0 or -1.
  virtual int produce() = 0;
  // What separates the components of a source's path.
  virtual char source_separator() const { return '\\'; }
  // Gives the entries of a directory in order; false for one of which nothing is saved.
  virtual bool read_dir(const std::string& path, std::vector<Entry>& entries) = 0;
  // False for an entry of the directory `dir` that is left out.
  virtual bool is_wanted(const std::string& dir, const Entry& entry) = 0;
  // Takes note of the volume whose block was written last.
  virtual void set_volume(const std::string& vol);
  // Called for an entry that is left out since its type can't be saved, with its full path.
  virtual void on_unsupported_file(const std::string&) {}
  // Tells the event handler, which is not null, how far the listing has come.
  virtual void report_listing();
  // Called when the whole listing is on the queue.
  virtual void on_listing_end() {}

  // Each puts blocks on the queue and is false where the listing can't go on.
  bool process_source(const source_entry& entry);
  // Puts all below a directory, whose own block is there already.
  bool walk_dir(const std::string& path);
  bool process_file(const _stat64& stat, const std::string& name, unsigned int reparse_type);
  // Leads from where the stream stands to a directory.
  bool goto_dir(const std::string& vol, const std::string& dir);
  bool write_item(unsigned int type, const std::string& name, long long mtime,
                  unsigned long long size, unsigned short flags, unsigned long long ino);
  bool write_item(unsigned int type, const std::string& name);
  // The block that ends the stream, and the last report.
  bool write_end();
  bool put_block(std::unique_ptr<Cat_Blk> block);
  // Lets a reader who waits have what was put: what comes next may take its time.
  bool end_directory();
  // The PDAT block, with the time `mtime`, where one was asked for and is still missing.
  bool put_pre_action(long long mtime);

  // Counts a file-like block.
  void count_file(unsigned long long size);
  // Tells the event handler, which is not null, of all that was counted.
  void report(int percent);

  // The path of an entry of the current directory.
  std::string full_path(const std::string& name) const;
  bool is_current_volume(const std::string& vol) const;
  // True for a directory whose path no block can hold; it is left out and the host is told.
  bool is_too_long(const std::string& path, const std::string& dir);
  void count_skipped_dir(const std::string& path, int error, const char* message);
  // Sends the event of an entry that is left out; an `error` of 0 goes as null.
  void send_skip(const char* type, const std::string& name, int error, const char* message);
  // The same for what counts as skipped: without an event handler a line in the log says it.
  void tell_skip(const char* type, const std::string& name, int error, const char* message);
  // Where that is counted.
  std::atomic<unsigned long long>& skipped_dirs() {
    return event_handler_ != nullptr ? event_handler_->skipped_dirs : untold_dirs_;
  }
  std::atomic<unsigned long long>& skipped_files() {
    return event_handler_ != nullptr ? event_handler_->skipped_files : untold_files_;
  }

  // Whether a change at `time` may have passed unseen.
  bool is_uncertain(long long time) const { return time >= uncertain_since_; }

  const unsigned short seq_;
  bool pre_action_data_;
  Event_Handler* event_handler_;
  std::string cur_vol_;
  std::string cur_dir_;
  Ref_Ptr<Writer_Hardlink_Map> hardlink_map_;
  Cat_Summary summary_;
  bool save_links_ = false;

 private:
  // The walk of a directory: where it is, and each directory on the way there.
  struct Level {
    std::size_t path_size;       // how much of `path` is its own path
    std::vector<Entry> entries;  // those that are still to come, last one first
  };
  struct Walk {
    std::string path;
    std::vector<Level> levels;
  };
  void enter(Walk& walk);
  bool handle(Walk& walk, const Entry& entry);
  bool put_sub_directory(const std::string& full, bool& left_out);
  bool put_failed();
  bool process_volume(const std::string& path);
  bool find_hardlink(const _stat64& stat, const std::string& name, unsigned int& type,
                     unsigned long long& size, unsigned short& link_flags);
  bool make_item(unsigned int type, const std::string& name, long long mtime,
                 unsigned long long size, unsigned short flags, unsigned long long ino);
  bool put_volume(const std::string& name, long long mtime);
  template <class Blk>
  bool put_file_like(const std::string& name, long long mtime, unsigned long long size,
                     unsigned short flags, unsigned long long ino);

  long long uncertain_since_ = std::numeric_limits<long long>::max();
  std::atomic<unsigned long long> untold_dirs_{0};
  std::atomic<unsigned long long> untold_files_{0};
};

}  // namespace MTF
