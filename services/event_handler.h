// The host's event sink, with the counters and the canceling flag of a job.
#pragma once

#include <atomic>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <vector>

namespace json_spirit {
using Value = nlohmann::json;
class Document;
}  // namespace json_spirit

namespace MTF {

// Codes of handle_event(), each with the keys of its document (services/json_spirit.h). An "errno"
// is a number, or null where no call failed. A "name" holds the bytes of the path in the system's
// form, which platform::display_path() (platform/native_path.h) makes native. It need not be UTF-8:
// dump() of the document throws then, unless it is given
// json_spirit::Value::error_handler_t::replace or ignore.
enum Event_Code : int {
  // A task of the job was made, or its making failed: "result", "name", "channel", "message".
  event_task_made = 0x1000004,
  // A task was started: "result", "name".
  event_task_started = 0x1000005,
  // The summary of the finished job: "vol_count", "dir_count", "file_count", "total_size",
  // "inc_size", "storage_size", "inc_file_count", "skipped_dirs", "skipped_files".
  event_summary = 0x1000006,
  // The catalog file could not be made: "result", "channel", "errno".
  event_catalog_failed = 0x1000007,
  // A piece could not be opened on the channel: "result", "channel", "name", "message".
  event_piece_open_failed = 0x1000008,
  // Writing or closing a piece failed: "result", "channel", "name", "message".
  event_piece_write_failed = 0x1000009,
  // A source entry was skipped: "type", "name", "errno", "message". What the walk of an incremental
  // job leaves out sends none: a line names it, and it is counted at the job's end.
  event_skipped = 0x100000A,
  // A file went bad while it was read: "type", "name", "message".
  event_corrupt = 0x100000B,
};

// The host derives from it and overrides handle_event(), and asks progress() from a thread of its
// own. set_channels() to refresh_total_count() are the job's to call. Every operation may be called
// from all threads of a job at once. An object serves one job: nothing sets its counters and its
// canceling flag back. A job refuses to start with the object of one in which a channel failed.
class Event_Handler {
 public:
  // Bytes and files of a job at one moment. What is found and then left out stays in the totals, so
  // what is done may never reach them.
  struct Progress {
    unsigned long long done_size;    // bytes taken from the sources
    unsigned long long done_count;   // data streams finished
    unsigned long long total_size;   // bytes that the listing has found so far
    unsigned long long total_count;  // files that the listing has found so far
    int percent;  // of the listing, where each channel has one of the slowest; 100 at its end
  };

  Event_Handler();
  virtual ~Event_Handler();
  Event_Handler(const Event_Handler&) = delete;
  Event_Handler& operator=(const Event_Handler&) = delete;

  // Takes one event; `document` lives for the call. The result is ignored. Must not throw.
  virtual int handle_event(int code, const json_spirit::Value& document) = 0;

  // The number of channels of the job. Called once, before any other thread runs.
  void set_channels(unsigned long long n);

  // `bytes` of a data stream of `channel` (0 alone, else 1 to n) have been written.
  void add_size(unsigned long long channel, unsigned long long bytes);

  // `n` more data streams are complete.
  void add_processed_count(unsigned long long n);

  // The listing of `channel` has found `size` bytes so far and is `percent` done. A listing for all
  // channels at once is that of channel 0.
  void total_size(unsigned long long channel, unsigned long long size, int percent);

  // The same for the number of files that it has found.
  void refresh_total_count(unsigned long long channel, unsigned long long count, int percent);
  void refresh_total_count(unsigned long long count, int percent) {
    refresh_total_count(0, count, percent);
  }

  // 1 selects the short report of a listing.
  int progress_report_mode() const { return progress_report_mode_; }
  void set_progress_report_mode(int mode) { progress_report_mode_ = mode; }

  // Asks the job to stop at the next block or data buffer. Safe in a signal handler.
  void set_canceling() { canceling_.store(true, std::memory_order_release); }
  bool is_canceling() const { return canceling_.load(std::memory_order_acquire); }

  // A channel of the job has failed, and the others are to stop: sets the canceling flag as well.
  // The job's to call.
  void set_job_failed() {
    job_failed_.store(true, std::memory_order_release);
    set_canceling();
  }
  bool is_of_failed_job() const { return job_failed_.load(std::memory_order_acquire); }

  // Totals over all channels.
  Progress progress() const;

  // Source entries that were left out.
  std::atomic<unsigned long long> skipped_dirs{0};
  std::atomic<unsigned long long> skipped_files{0};

 private:
  struct Channel_Total;

  std::unique_ptr<Channel_Total[]> channels_;
  unsigned long long channel_count_ = 0;
  std::atomic<unsigned long long> processed_{0};
  std::atomic<bool> canceling_{false};
  std::atomic<bool> job_failed_{false};
  int progress_report_mode_ = 0;
};

}  // namespace MTF
