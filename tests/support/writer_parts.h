// What a block writer works with, in memory.
#pragma once

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "mtf/writer/backup_context.h"
#include "mtf/writer/backup_option.h"
#include "mtf/writer/catalog_writer.h"
#include "mtf/writer/imbc_writer.h"
#include "platform/backup_read.h"
#include "services/event_handler.h"
#include "services/json_spirit.h"
#include "tests/support/media_bytes.h"
#include "tests/support/temp_dir.h"

namespace test {

// Takes `room` bytes and then no more.
class Memory_Writer : public MTF::IWriter {
 public:
  unsigned long long write(const char* bytes, unsigned long long size) override {
    if (size > room - data.size()) return 0;
    data.append(bytes, size);
    return size;
  }
  bool flush() override { return ++flushes, true; }
  unsigned long long write_filemark(unsigned long long) override { return 0; }
  unsigned long long size() override { return data.size(); }
  std::string err_msg() override { return "full"; }

  std::string data;
  std::size_t room = static_cast<std::size_t>(-1);
  int flushes = 0;
};

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

class Events : public MTF::Event_Handler {
 public:
  int handle_event(int code, const json_spirit::Value& document) override {
    seen.emplace_back(code, document);
    return 0;
  }
  std::vector<std::pair<int, json_spirit::Value>> seen;
};

// Takes every entry.
class No_Media_Catalog : public MTF::IMBC_Writer {
 public:
  bool open() override { return true; }
  bool add_tape_blk(const MTF::Tape_Blk&) override { return true; }
  bool add_sset_blk(const MTF::SSet_Blk&) override { return true; }
  bool add_vol_blk(const MTF::Vol_Blk&) override { return true; }
  bool add_dir_blk(const MTF::Dir_Blk&, const std::string&) override { return true; }
  bool add_file_blk(const MTF::File_Blk&, const std::string&) override { return true; }
  bool add_slnk_blk(const MTF::SLnk_Blk&, const std::string&) override { return true; }
  bool add_hlnk_blk(const MTF::HLnk_Blk&, const std::string&) override { return true; }
  bool add_devb_blk(const MTF::Devb_Blk&, const std::string&) override { return true; }
  bool add_pdat_blk(const MTF::PDat_Blk&, const std::string&) override { return true; }
  bool add_cfil_blk(const MTF::CFil_Blk&) override { return true; }
  bool add_eset_blk(const MTF::ESet_Blk&) override { return true; }
  bool write(MTF::IWriter&) override { return true; }
};

// Everything together, for a job of one channel.
struct Writer_Parts {
  Writer_Parts() : ctx(12, 9), events(new Events), event_handler(events) {
    option.job_tmp_dir = dir.path();
    option.minor_resource_id = "job";
    events->set_channels(1);
  }

  test_support::Temp_Dir dir;
  MTF::Backup_Option option;
  MTF::Backup_Context ctx;
  Events* events;
  MTF::Ref_Ptr<MTF::Event_Handler> event_handler;
  MTF::Ref_Ptr<MTF::Buffer> buffer = MTF::make_buffer();
  Memory_Writer writer;
  No_Media_Catalog media_catalog;
};

}  // namespace test
