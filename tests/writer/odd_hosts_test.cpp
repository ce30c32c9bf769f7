// Whole jobs of hosts that name a thing twice, throw what isn't an exception, or lose bytes.
#include <gtest/gtest.h>

#include <cstring>
#include <future>
#include <mutex>

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

TEST_F(Odd_Host, AJobThatNeverRanCompletesWithNothing) {
  Test_Job job;
  EXPECT_TRUE(job.backup.complete());
  EXPECT_EQ(job.events.all(event_summary).size(), 1U);
}

}  // namespace
