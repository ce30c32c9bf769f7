// Small files that come next are read and compressed while the writer is at the ones before them.
#pragma once

#include <array>
#include <string>

#include "mtf/writer/look_ahead.h"
#include "platform/file.h"
#include "services/buffer.h"
#include "services/compression_ring.h"

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

  bool is_wanted() override;
  bool has_room() const override { return ring_.size() < most_files; }
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
    bool is_ready = false;  // else it is left to the writer
    File file;
  };

  const unsigned short method_;
  const int level_;
  const int thread_count_;
  bool is_off_ = false;  // for good
  bool is_started_ = false;
  std::array<Item, most_files + 1> items_;  // one more for the file that is written
  const Item* current_ = nullptr;
  Compression_Ring ring_;  // ends ahead of the items that it works on
};

}  // namespace MTF
