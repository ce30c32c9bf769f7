// Whole jobs of hosts that name a thing twice, throw what isn't an exception, or lose bytes.
#include <gtest/gtest.h>

#include <cstring>
#include <future>
#include <mutex>
#include <thread>

#include "mtf/writer/media_writer.h"
#include "mtf/writer/source_writer.h"
#include "mtf/writer/tfdd_stream.h"
#include "services/no_throw.h"
#include "tests/support/media_layout.h"
#include "tests/support/scripted_host.h"
#include "tests/support/test_job.h"

namespace {

using namespace MTF;
using Texts = std::vector<std::string>;
using test_support::Script;
using test_support::Test_Job;

class Odd_Host : public testing::Test {
 protected:
  Odd_Host() {
    script->dir("X:\\d");
    script->dir("X:\\d\\s");
    script->file("X:\\d\\s\\f", "f");
    script->file("X:\\d\\g", "g");
  }

  // What a full job of `sources` lists, and then an incremental job that is based on it.
  Texts listed(const Texts& sources) {
    Test_Job first;
    first.callbacks = test_support::scripted_factory(script);
    for (std::size_t i = 1; i < sources.size(); ++i) first.backup.add_source(sources[i]);
    EXPECT_TRUE(first.run(sources[0]));
    const Texts entries = test_support::catalog_entries(first.catalog());
    const std::map<std::string, std::string> pieces = first.storage.pieces;
    Test_Job second;
    second.callbacks = test_support::scripted_factory(script);
    for (std::size_t i = 1; i < sources.size(); ++i) second.backup.add_source(sources[i]);
    EXPECT_TRUE(second.run_second(sources[0], pieces)) << second.log->text();
    return entries;
  }

  std::shared_ptr<Script> script = std::make_shared<Script>();
};

TEST_F(Odd_Host, ASourceIsSavedOnce) {
  const Texts whole = {"VOLB X:", "DIRB d\\", "FILE g", "DIRB d\\s\\", "FILE f", "FEND"};
  for (const Texts& sources : {Texts{"X:\\d", "X:\\d\\s"}, Texts{"X:\\d\\", "X:\\d", "X:\\d\\g"},
                               Texts{"X:", "X:\\d"}, Texts{"X:\\"}}) {
    EXPECT_EQ(listed(sources), whole) << sources.front();
  }
}

TEST_F(Odd_Host, ANameGivenTwiceIsSavedOnce) {
  script->on_read_dir = [this](const std::string& path, Script::Entries& entries) {
    if (path.compare(0, 4, "X:\\d") != 0 || path.find('s') != std::string::npos) return true;
    for (const char* name : {"g", "s", "s", "g"}) {
      oxbase::Directory_Entry_T<char> entry{name, {}, 0};
      entry.stat.st_mode = script->find(std::string("X:\\d\\") + name)->stat.mode;
      // As if a file had stood where the directory is.
      if (entries.size() == 1) entry.stat.st_mode = 0x81A4;
      entries.push_back(entry);
    }
    return true;
  };
  EXPECT_EQ(listed({"X:\\d"}), (Texts{"VOLB X:", "DIRB d\\", "FILE g", "DIRB d\\s\\", "FEND"}));
}

TEST_F(Odd_Host, WhatIsThrownEndsTheJobAlone) {
  struct Filter : IFilter {
    bool accept(const char*, bool) const override { throw 42; }
  } filter;
  const test_support::Temp_Dir tree;
  test_support::write_file(tree / "f", "");
  for (const int threads : {1, 3}) {
    Test_Job job;
    job.threads = threads;
    job.filter = &filter;
    EXPECT_FALSE(job.run(tree.path())) << threads;
  }
  Test_Job job;
  job.callbacks = test_support::scripted_factory(script);
  script->on_begin = [](const source_entry&) -> bool { throw "no exception"; };
  EXPECT_FALSE(job.run("X:\\d"));
  EXPECT_EQ(job.log->count("128 Task failed: unknown exception"), 1) << job.log->text();
}

// Gives three files, and damages the second one's block while it waits in the queue.
struct Damaging_Lister : ISrc_Lister {
  using ISrc_Lister::next;
  bool next(Cat_Blk& block) override {
    const std::string& bytes = blocks[at++];
    if (at == blocks.size()) {
      waiting[checksum_at] ^= 1;
      done->set_value();
    }
    if (!block.alloc_buffer(static_cast<unsigned int>(bytes.size()))) return false;
    std::memcpy(block.data(), bytes.data(), bytes.size());
    if (at == 3) waiting = block.data();
    return true;
  }

  const Texts blocks = {test_support::vol_block("X:"), test_support::file_block("a"),
                        test_support::file_block("b"), test_support::file_block("c"),
                        test_support::end_block()};
  static constexpr std::size_t checksum_at = 62;
  std::size_t at = 0;
  char* waiting = nullptr;
  std::shared_ptr<std::promise<void>> done;
};

TEST_F(Odd_Host, ABlockThatIsDamagedOnItsWayFailsTheJob) {
  for (const char* name : {"a", "b", "c"}) script->file(std::string("X:\\") + name, "");
  const auto done = std::make_shared<std::promise<void>>();
  script->lister = [done] {
    auto* lister = new Damaging_Lister;
    lister->done = done;
    return lister;
  };
  Test_Job job;
  job.callbacks = test_support::scripted_factory(script);
  // No block is taken off the queue before the media has its first one.
  std::once_flag once;
  job.storage.on_write = [&](auto&&...) {
    std::call_once(once, [&] { done->get_future().wait(); });
  };
  EXPECT_FALSE(job.run("X:"));
}

// Its own lines go where they went, while a job runs and behind it; those of the job don't.
TEST_F(Odd_Host, KeepsTheLinesOfItsOwnThreads) {
  const test_support::Temp_Dir tree;
  for (const int threads : {1, 3}) {
    Test_Job job;
    job.threads = threads;
    ACE_LOG_MSG->set_flags(ACE_Log_Msg::STDERR);
    ACE_LOG_MSG->clr_flags(ACE_Log_Msg::MSG_CALLBACK);
    const unsigned long before = ACE_LOG_MSG->flags();
    const auto line = [](const char* text) { ACE_ERROR((LM_ERROR, ACE_TEXT("%C\n"), text)); };
    job.storage.on_write = [&](auto&&...) {
      line("of the job");
      std::thread(line, "meanwhile").join();
      job.storage.on_write = nullptr;
    };
    testing::internal::CaptureStderr();
    EXPECT_TRUE(job.run(tree.path()));
    line("behind");
    const std::string shown = testing::internal::GetCapturedStderr();
    for (const char* text : {"meanwhile\n", "\nSummary: ", "\nbehind\n"}) {
      EXPECT_NE(shown.find(text), std::string::npos) << shown;
    }
    EXPECT_EQ(shown.find("of the job\n"), std::string::npos) << shown;
    EXPECT_EQ(job.log->count("128 of the job\n"), 1);
    EXPECT_EQ(ACE_LOG_MSG->flags(), before);
  }
}

TEST_F(Odd_Host, WhatIsMissingOrNotOpenIsRefused) {
  const test_support::Temp_Dir dir;
  Backup_Option opt;
  opt.job_tmp_dir = dir.path();
  opt.minor_resource_id = "job";
  Media_Writer media(opt, 0);
  Source_Writer list(1, '/');
  ASSERT_TRUE(list.open(dir / "list"));
  Catalog_Stream catalog(0, 512, 4096, 0);
  EXPECT_FALSE(catalog.open(dir / "no/such"));
  TFDD_Stream detail(&opt);
  EXPECT_FALSE(detail.open(dir / "no/such"));
  Cat_File_Blk none;
  const std::pair<const char*, std::function<bool()>> cases[] = {
      {"data_set is NULL", [&] { return media.add_data_set(nullptr); }},
      {"mbc_writer_.get() is NULL", [&] { return media.write(); }},
      {"block.data() is NULL", [&] { return list.write(none); }},
      {"block_.data() is NULL", [&] { return catalog.end(); }},
      {"block_.data() is NULL", [&] { return detail.end(); }},
      {"blk.data() is NULL", [&] { return catalog.add_cat_file_blk(none); }}};
  for (const auto& [check, call] : cases) {
    const Test_Job job;
    EXPECT_FALSE(call());
    EXPECT_TRUE(job.log->asserted(check)) << check << job.log->text();
  }
  const struct {
    unsigned flb, pb, fla_shift, pba_shift;
  } sizes[] = {{512, 65536, 9, 16}, {65536, 65536, 16, 16}, {512, 4096, 9, 13},
               {512, 4096, 8, 12},  {0, 4096, 9, 12},       {8192, 4096, 13, 12},
               {500, 4096, 9, 12},  {512, 32768, 9, 15}};
  for (const auto& size : sizes) {
    Test_Job job;
    opt.format_logical_block_size = size.flb;
    opt.physical_block_size = size.pb;
    opt.fla_shift = size.fla_shift;
    opt.pba_shift = size.pba_shift;
    Media_Writer writer(opt, 0);
    const bool fits = size.pb == 32768;
    EXPECT_EQ(writer.open(job.channels->create(), 1, make_writer_hardlink_map(), job.handler, {}),
              fits);
    EXPECT_EQ(job.log->count("128 Block sizes don't fit"), fits ? 0 : 1) << size.pb;
  }
}

TEST_F(Odd_Host, AJobThatNeverRanCompletesWithNothing) {
  Test_Job job;
  EXPECT_TRUE(job.backup.complete());
  EXPECT_EQ(job.events.all(event_summary).size(), 1U);
}

}  // namespace
