// What a block writer works with, in memory.
#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <utility>

#include "mtf/writer/catalog_writer.h"
#include "mtf/writer/type1_mbc_writer.h"
#include "platform/backup_read.h"
#include "tests/support/media_bytes.h"
#include "tests/support/test_job.h"

namespace test {

// The bytes of records as a file gives them.
class Script : public platform::Record_Source {
 public:
  Script(std::string bytes, std::size_t end, int error)
      : bytes_(std::move(bytes)), end_(end), error_(error) {}

  bool open(const std::string&) override { return true; }
  long long read(char* data, std::size_t size) override {
    const std::size_t n = std::min(size, end_ - at_);
    if (n == 0 && size != 0 && error_ != 0) return -1;
    bytes_.copy(data, n, at_);
    at_ += n;
    return static_cast<long long>(n);
  }
  int last_error() const override { return error_; }

 private:
  std::string bytes_;
  std::size_t end_;  // what comes behind fails with error_, or is missing where that is 0
  int error_;
  std::size_t at_ = 0;
};

// Everything together, for a job of one channel.
struct Writer_Parts {
  // Has `writer` write the block of the entry `cat`.
  template <class Cat>
  int write_block(MTF::DBLK_Writer& block_writer, Cat& cat) {
    EXPECT_TRUE(media_catalog.open() && catalog.open(0));
    EXPECT_TRUE(media_catalog.add_tape_blk(MTF::Tape_Blk(*buffer, true)));
    EXPECT_TRUE(media_catalog.add_sset_blk(MTF::SSet_Blk(*buffer, true)));
    EXPECT_TRUE(block_writer.init(&option, &ctx, buffer, &media_catalog, &catalog));
    EXPECT_TRUE(block_writer.reset(cat.data(), cat.hdr().length()));
    return block_writer.write(writer);
  }

  test_support::Temp_Dir dir;
  MTF::Backup_Option option = [this] {
    MTF::Backup_Option made;
    made.job_tmp_dir = dir.path();
    made.minor_resource_id = "job";
    return made;
  }();
  MTF::Backup_Context ctx{12, 9};
  test_support::Events* const events = new test_support::Events;
  const MTF::Ref_Ptr<MTF::Event_Handler> event_handler{events};
  MTF::Ref_Ptr<MTF::Buffer> buffer = MTF::make_buffer();
  MTF::Type1_MBC_Writer media_catalog{&option, &ctx};
  MTF::Catalog_Writer catalog{option};
  test_support::Memory_Writer writer;
};

}  // namespace test
