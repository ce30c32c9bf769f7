// Small files that come next are read and compressed while the writer is at the ones before them.
#pragma once

#include <array>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "mtf/writer/look_ahead.h"
#include "platform/file.h"
#include "services/buffer.h"
#include "services/compression.h"

namespace MTF {

// Used by the thread of one writer, which works on the next files itself wherever it would have to
// wait for a thread of the object's own.
class Ready_Files : public Look_Ahead {
 public:
  static constexpr unsigned int largest_file = 0x10000;  // what one compression frame takes

  // A file that was read whole: its content is as long as the facts say.
  struct File {
    std::string path;
    platform::File_Facts facts;
    Buffer content{8};
    Buffer compressed{8};
  };

  // `threads` compress, the writer's among them, with `method` and `level`.
  Ready_Files(unsigned short method, int level, int threads);
  // Waits for the threads, each of which ends with the file it is at.
  ~Ready_Files() override;
  Ready_Files(const Ready_Files&) = delete;
  Ready_Files& operator=(const Ready_Files&) = delete;

  bool is_wanted() override;
  bool has_room() const override { return added_ - removed_ < most_files; }
  void add(const std::string& path, unsigned long long size) override;
  // Also drops the file that was ready before.
  void remove_oldest() override;

  // The file of the block that is written now. Null where it is another one than that at `path`, or
  // has to be read by the writer. It stays until the next block.
  const File* find(const std::string& path) const;
  // What `content` gives when it is compressed, where that is the content of this file; else null.
  const Buffer* find_compressed(const Buffer& content) const;

 private:
  static constexpr std::size_t most_files = 31;

  struct Item {
    enum State { waiting, in_work, ready, left_alone };
    State state = left_alone;
    File file;
  };

  bool start();
  bool make_compressors();
  void work();
  void prepare_next(std::unique_lock<std::mutex>& lock, Compressor& compressor);
  Item& item(unsigned long long number) { return items_[number % items_.size()]; }

  const unsigned short method_;
  const int level_;
  const int thread_count_;
  bool is_off_ = false;  // for good
  bool is_started_ = false;

  // A ring, with one place more for the file that is written.
  std::array<Item, most_files + 1> items_;
  const Item* current_ = nullptr;
  std::vector<std::unique_ptr<Compressor>> compressors_;  // the first is the writer's
  std::vector<std::thread> threads_;
  std::mutex mutex_;
  std::condition_variable added_files_;
  std::condition_variable prepared_files_;
  // Numbers of items. The writer's thread alone changes the first two, the first under the mutex,
  // as is the rest.
  unsigned long long added_ = 0;
  unsigned long long removed_ = 0;
  unsigned long long begun_ = 0;
  std::size_t helpers_ = 0;  // threads that have their compressor
  bool is_stopping_ = false;
};

}  // namespace MTF
