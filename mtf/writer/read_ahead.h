// Files that the next blocks name are read ahead of the writer, while reads wait for a disk.
#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "mtf/writer/look_ahead.h"
#include "platform/read_ahead.h"

namespace MTF {

// Used by the thread of one writer; threads of its own open the files and ask the kernel for their
// content, so that a disk has many requests to work on while one file is written. They are started
// when the writer's own reads first come from a disk, and have nothing to do as long as the cache
// holds what is read.
class Read_Ahead : public Look_Ahead {
 public:
  static constexpr std::size_t most_files = 64;

  // What the calling thread has had to read from disks so far, in bytes.
  using Disk_Reads = unsigned long long (*)();

  explicit Read_Ahead(Disk_Reads disk_reads = platform::disk_reads_of_thread);
  // Waits for the threads, each of which ends with the file it is at.
  ~Read_Ahead() override;
  Read_Ahead(const Read_Ahead&) = delete;
  Read_Ahead& operator=(const Read_Ahead&) = delete;

  bool is_wanted() override;
  bool has_room() const override;
  void add(const std::string& path, unsigned long long size) override;
  void remove_oldest() override;

 private:
  struct Item {
    std::string path;  // empty where nothing is to be read
    unsigned long long size = 0;
  };

  void measure();
  bool start();
  template <class Step>
  bool attempt(Step step);
  void work();
  Item& item(unsigned long long number) { return items_[number % items_.size()]; }

  const Disk_Reads disk_reads_;
  unsigned int blocks_ = 0;             // since the last measurement
  unsigned int idle_measurements_ = 0;  // in a row, that found no reads
  unsigned long long own_reads_;        // of the writer's thread, at the last measurement
  unsigned long long ahead_reads_ = 0;  // of the other threads
  bool is_active_ = false;
  bool is_off_ = false;          // for good
  unsigned long long size_ = 0;  // of the content that is asked for and not yet written

  std::array<Item, most_files> items_;  // a ring
  std::vector<std::thread> threads_;
  std::mutex mutex_;
  std::condition_variable changed_;
  // Numbers of items. The writer's thread alone changes the first two, under the mutex, as is the
  // rest.
  unsigned long long added_ = 0;
  unsigned long long removed_ = 0;
  unsigned long long begun_ = 0;
  bool stopping_ = false;
  std::atomic<unsigned long long> reads_ahead_{0};  // bytes that the threads had to read
};

}  // namespace MTF
