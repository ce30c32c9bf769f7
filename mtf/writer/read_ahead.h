// Files that the next blocks name are read ahead of the writer, while reads wait for a disk.
#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "mtf/catalog/catalog_helper.h"
#include "platform/read_ahead.h"

namespace MTF {

// Used by the thread of one writer; threads of its own open the files and ask the kernel for their
// content, so that a disk has many requests to work on while one file is written. They are started
// when the writer's own reads first come from a disk, and have nothing to do as long as the cache
// holds what is read.
class Read_Ahead {
 public:
  static constexpr std::size_t most_files = 64;

  // What the calling thread has had to read from disks so far, in bytes.
  using Disk_Reads = unsigned long long (*)();

  // Of a job numbered `seq`. `volume_map` leads from volumes to their shadows; it may be null, and
  // must outlive the object.
  Read_Ahead(unsigned short seq, const std::map<std::string, std::string>* volume_map,
             Disk_Reads disk_reads = platform::disk_reads_of_thread);
  // Waits for the threads, each of which ends with the file it is at.
  ~Read_Ahead();
  Read_Ahead(const Read_Ahead&) = delete;
  Read_Ahead& operator=(const Read_Ahead&) = delete;

  // True while blocks should be taken ahead; to be asked once for each block that is written.
  bool is_wanted();
  // True while a further block may be added.
  bool has_room() const;

  // Goes to the place of a VOLB or DIRB block that is written already. Where memory is short for
  // this or for add(), nothing is read ahead any more.
  void enter(const Cat_Blk& block);
  // Takes a block that will be written behind those that were added before.
  void add(const Cat_Blk& block);
  // The oldest block that was added is written now.
  void remove_oldest();

 private:
  struct Item {
    std::string path;  // empty where nothing is to be read
    unsigned long long size = 0;
  };

  void measure();
  bool start();
  template <class Step>
  bool attempt(Step step);
  void go_to(const Cat_Blk& block);
  void set_file(const Cat_Blk& block, Item& out);
  void work();
  Item& item(unsigned long long number) { return items_[number % items_.size()]; }

  const unsigned short seq_;
  const std::map<std::string, std::string>* volume_map_;
  const Disk_Reads disk_reads_;
  std::string volume_;
  std::string shadow_;
  std::string dir_;

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
