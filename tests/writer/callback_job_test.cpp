// Whole jobs whose sources are the host's: what the media holds, and what becomes of its mistakes.
#include <gtest/gtest.h>

#include "mtf/reader/jobs.h"
#include "mtf/writer/backup_context.h"
#include "services/compression.h"
#include "tests/support/media_bytes.h"
#include "tests/support/media_layout.h"
#include "tests/support/scripted_host.h"
#include "tests/support/test_job.h"

namespace {

using namespace MTF;
using Texts = std::vector<std::string>;
using test_support::Block_Lister;
using test_support::catalog_entries;
using test_support::dir_block;
using test_support::end_block;
using test_support::file_block;
using test_support::Item;
using test_support::media_items;
using test_support::media_order;
using test_support::number;
using test_support::Script;
using test_support::Test_Job;
using test_support::vol_block;

class Callback_Job : public testing::Test {
 protected:
  Callback_Job() { start(); }

  // A new job on the same script.
  void start() {
    job.reset();  // each takes the log for as long as it lives
    job = std::make_unique<Test_Job>();
    job->callbacks = test_support::scripted_factory(script);
  }
  bool run(unsigned long long channels = 1) { return job->run("X:", channels); }
  Texts skipped() const { return job->events.texts(event_skipped); }

  // The data of the `n`-th stream `id` of a media, counted from 0.
  std::string stream(const std::string& id, std::size_t n = 0) const {
    for (const Item& item : media_items(job->media())) {
      if (item.id == id && n-- == 0) return job->media().substr(item.data, item.length);
    }
    return "none";
  }
  // The blocks and streams of the media ahead of its end.
  std::string order() const {
    const std::string all = media_order(job->media());
    return all.substr(0, all.find(" ESET"));
  }
  std::string block(const std::string& id) const {
    for (const Item& item : media_items(job->media())) {
      if (item.id == id) return job->media().substr(item.at, 1024);
    }
    return std::string(1024, '?');
  }

  // Paths of what the job's catalogs list, and the faults that a check of all its pieces finds.
  Texts listed(unsigned long long channels, unsigned seq = 1) {
    test::Memory_Store store;
    store.held = job->storage.pieces;
    Job_Pieces pieces{"j", seq, {}, true};
    for (unsigned long long n = 1; n <= channels; ++n) {
      pieces.channels.push_back(channels == 1 ? 0 : n);
    }
    Texts out;
    const Fault_Sink sink = [&](const Fault& fault) { ADD_FAILURE() << fault.text; };
    list_job(
        store, pieces, [&](const Job_Entry& entry) { out.push_back(entry.path); }, sink);
    EXPECT_EQ(verify_job(store, pieces, sink).faults, 0U);
    std::sort(out.begin(), out.end());
    return out;
  }

  std::shared_ptr<Script> script = std::make_shared<Script>();
  std::unique_ptr<Test_Job> job;
};

TEST_F(Callback_Job, TheMedia) {
  Callback_Stat& dir = script->dir("X:\\d");
  dir.size = 77;
  dir.blocks = 3;
  dir.mtime = 1582979696;
  Callback_Stat& file = script->file("X:\\d\\f", "hello");
  file = {1, 2, 0x81A4, 4, 1ULL << 40, 1, 7, 5, 9, 10, 11, 1582979696, 13, "me", "us"};
  script->file("X:\\empty", "");
  job->backup.backup_read(true);
  ASSERT_TRUE(run());
  EXPECT_EQ(order(), "TAPE SSET META VOLB FILE STAN CTEX DIRB CTEX FILE STAN CSUM CTEX");
  EXPECT_EQ(stream("STAN", 1), "hello");
  test::Bytes record;
  for (unsigned long long value :
       {1ULL, 2ULL, 0x81A4ULL, 4ULL, 1ULL << 40, 1ULL, 7ULL, 5ULL, 9ULL, 10ULL}) {
    record.le(value, 8);
  }
  record.le(2, 2).le(88, 2).le(2, 2).le(90, 2).raw("meus");
  EXPECT_EQ(stream("CTEX", 2), record.data);
  EXPECT_EQ(stream("CTEX", 0).size(), 88U);  // no owner, no group
  const std::string dirb = block("DIRB");
  EXPECT_EQ(number(dirb, 12, 8), 77U);
  EXPECT_EQ(number(dirb, 52, 4), 0U);
  EXPECT_EQ(dirb.substr(56, 5), test::date(2020, 2, 29, 12, 34, 56));
  EXPECT_EQ(dirb.substr(61, 5), test::date(1970, 1, 1));
  // Of `empty`, which comes first, no byte was asked for.
  EXPECT_EQ(script->calls("read").size() - script->calls("read_dir").size(), 1U);
  EXPECT_EQ(script->calls("close").size(), 1U);
  EXPECT_EQ(script->calls("create").size(), 2U);
  EXPECT_EQ(job->log->count("4 Use BackupRead API"), 0);
  EXPECT_EQ(job->backup.summary().total_size(), 3U * 512 + 10 * 512);
  EXPECT_EQ(listed(1), (Texts{"X:", "X:\\d", "X:\\d\\f", "X:\\empty"}));
}

TEST_F(Callback_Job, LongNamesAndCompression) {
  const std::string name(3000, 'n');
  script->file("X:\\" + name, std::string(200000, 'x'));
  script->dir("X:\\" + std::string(2000, 'd'));
  job->compression = compression_lz4;
  ASSERT_TRUE(run());
  EXPECT_EQ(order(), "TAPE SSET META VOLB FILE STAN CSUM CTEX DIRB PNAM CTEX");
  EXPECT_EQ(listed(1).size(), 3U);
}

TEST_F(Callback_Job, TheLastWordOfTheHost) {
  script->file("X:\\f", "hello").blocks = 1;
  script->on_file_blk = [](File_Blk& blk, unsigned long long& space, Callback_Stat& stat) {
    EXPECT_EQ(space, 512U);
    blk.file_attributes(0x100);
    blk.hdr().displayable_size(4);
    space = 1 << 20;
    stat.owner = "host";
    return true;
  };
  ASSERT_TRUE(run());
  EXPECT_EQ(number(block("FILE"), 52, 4), 0x100U);
  EXPECT_EQ(stream("STAN"), "hell");
  EXPECT_EQ(stream("CTEX").substr(88), "host");
  EXPECT_EQ(job->backup.summary().total_size(), 1U << 20);

  start();
  script->on_file_blk = [](File_Blk&, unsigned long long&, Callback_Stat&) { return false; };
  EXPECT_FALSE(run());
  EXPECT_EQ(job->backup.err_code(), error_write);
  EXPECT_EQ(job->media().find("FILE"), std::string::npos);
}

// Header and data of the STAN, CSUM and CTEX streams of a host's file, and nothing else, leave the
// code as it was.
TEST_F(Callback_Job, AStreamThatCannotBeWrittenSetsNoCode) {
  script->file("X:\\f", "hello");
  int without_code = 0;
  for (unsigned n = 1;; ++n) {
    job.reset();
    job = std::make_unique<Test_Job>(test_support::Fault{test_support::Op::write, n});
    job->callbacks = test_support::scripted_factory(script);
    if (run()) break;
    without_code += job->backup.err_code() == 0 ? 1 : 0;
  }
  EXPECT_EQ(without_code, 6);
}

int put(Buffer& data, std::size_t n, char fill = 'x') {
  std::fill_n(data.data(), std::min<std::size_t>(n, data.capacity()), fill);
  data.size(static_cast<unsigned int>(n));
  return 0;
}

using Read = std::function<int(Buffer&, const std::string&, std::size_t& at)>;

TEST_F(Callback_Job, ReadersThatGiveAnotherSizeThanTheyDeclare) {
  struct Case {
    const char* name;
    unsigned long long size;
    Read read;
    std::string data;  // of the STAN stream
    bool corrupt;
  };
  const std::string xs(100, 'x');
  for (const Case& each : {
           Case{"more at once", 100, [](Buffer&b, auto&, auto&) { return put(b, 101); }, xs, false},
           Case{"more and more", 100, [](Buffer&b, auto&, auto&) { return put(b, 30); }, xs, false},
           Case{"none", 100, [](Buffer&, auto&, auto&) { return 1; }, std::string(100, '\0'), true},
           Case{"an empty buffer", 100, [](Buffer&b, auto&, auto&) { return put(b, 0); },
                std::string(100, '\0'), true},
           Case{"nothing said", 100, [](Buffer&, auto&, auto&) { return 0; },
                std::string(100, '\0'), true},
           Case{"some", 100,
                [](Buffer&b, auto&, std::size_t&at) { return at++ == 0 ? put(b, 60) : 1; },
                std::string(60, 'x') + std::string(40, '\0'), true},
           Case{"a buffer that grew", 200000,
                [](Buffer&b, auto&, auto&) { return b.expand(300000), put(b, 300000); },
                std::string(200000, 'x'), false},
       }) {
    SCOPED_TRACE(each.name);
    start();
    script->file("X:\\f", "").size = each.size;
    script->file("X:\\g", "");
    script->on_read = each.read;
    ASSERT_TRUE(run());
    EXPECT_EQ(stream("STAN"), each.data);
    EXPECT_EQ(order(), each.corrupt ? "TAPE SSET META VOLB FILE STAN CFIL FILE STAN CTEX"
                                    : "TAPE SSET META VOLB FILE STAN CSUM CTEX FILE STAN CTEX");
    EXPECT_EQ(job->events.all(event_corrupt).size(), each.corrupt ? 1U : 0U);
    EXPECT_EQ(listed(1), each.corrupt ? (Texts{"X:", "X:\\g"}) : (Texts{"X:", "X:\\f", "X:\\g"}));
    if (each.corrupt) {
      EXPECT_EQ(number(block("CFIL"), 52, 4), 0x10000U);
      EXPECT_EQ(number(block("CFIL"), 72, 2), 1U);
    }
  }
}

// After one of these the host isn't asked for another file.
TEST_F(Callback_Job, MistakesThatStopAJob) {
  struct Case {
    const char* name;
    std::function<void()> make;
    const char* line;
  };
  script->file("X:\\f", "1");
  script->file("X:\\g", "2");
  for (const Case& each : {
           Case{"read fails", [&] { script->on_read = [](auto&...) { return -1; }; }, nullptr},
           Case{"more than there is room for",
                [&] { script->on_read = [](Buffer& b, auto&...) { return put(b, 0x10001); }; },
                "128 File reader gave 65537 bytes where there is room for 65536, path='X:\\f'\n"},
           Case{"open fails for good", [&] { script->on_open = [](auto&) { return -1; }; },
                nullptr},
           Case{"close fails", [&] { script->on_close = [] { return -1; }; },
                "128 Failed to close file reader on File_Blk_Writer_Callback\n"},
           Case{"no reader", [&] { script->gives_reader = false; }, nullptr},
           Case{"no callback for the task", [&] { script->callbacks = 0; }, nullptr},
           Case{"no callback for the producer", [&] { script->callbacks = 1; }, nullptr},
       }) {
    SCOPED_TRACE(each.name);
    start();
    script->on_read = nullptr;
    script->on_open = nullptr;
    script->on_close = nullptr;
    script->gives_reader = true;
    script->callbacks = 100;
    const std::size_t opened = script->calls("open").size();
    each.make();
    EXPECT_FALSE(run());
    EXPECT_LE(script->calls("open").size() - opened, 1U);
    EXPECT_EQ(each.line == nullptr || job->log->count(each.line) == 1, true);
    EXPECT_EQ(job->catalog(), "");
  }
}

TEST_F(Callback_Job, WhatCannotBeExaminedOrOpenedIsLeftOut) {
  script->dir("X:\\d");
  script->file("X:\\d\\f", "1");
  // There, but its directory isn't, and no other is to have it.
  script->file("X:\\away\\f", "0");
  script->file("X:\\closed", "2");
  script->file("X:\\odd", "3");
  script->on_open = [](const std::string& path) {
    return path == "X:\\closed" ? 1 : path == "X:\\odd" ? 7 : 0;
  };
  script->on_read_dir = [](const std::string& path, Script::Entries& entries) {
    const Texts names = path == "X:" ? Texts{"closed", "gone", "odd"} : Texts{"f"};
    for (const std::string& name : names) entries.push_back({name, {}});
    for (auto& entry : entries) entry.stat.st_mode = 0x8000;
    for (const std::string& name : path == "X:" ? Texts{"away", "d"} : Texts{}) {
      entries.push_back({name, {}});
      entries.back().stat.st_mode = 0x4000;
    }
    return true;
  };
  ASSERT_TRUE(run());
  EXPECT_EQ(skipped(),
            (Texts{
                R"({"errno":2,"message":"Failed to open file","name":"X:\\closed","type":"file"})",
                R"({"errno":2,"message":"Failed to stat file","name":"X:\\gone","type":"file"})",
                R"({"errno":2,"message":"Open failed","name":"X:\\away","type":"dir"})",
                R"({"errno":2,"message":"Failed to stat file","name":"X:\\away\\f","type":"file"})",
            }));
  EXPECT_EQ(listed(1), (Texts{"X:", "X:\\d", "X:\\d\\f"}));
  EXPECT_EQ(job->log->count("32 Failed to lstat file, path='X:\\gone'\n"), 1);
}

TEST_F(Callback_Job, ASlashSeparatesTheVolumeFromTheDirectory) {
  script->separator = '/';
  script->dir("X:\\d");
  script->file("X:\\d\\f", "1");
  ASSERT_TRUE(run());
  EXPECT_EQ(script->calls("lstat X:/"), Texts{"lstat X:/d\\"});
  EXPECT_EQ(script->calls("lstat X:\\"), Texts{"lstat X:\\d\\f"});
}

TEST_F(Callback_Job, OnSeveralChannels) {
  Texts expected{"X:"};
  for (int d = 0; d < 20; ++d) {
    const std::string dir = "X:\\d" + std::to_string(d);
    script->dir(dir);
    expected.push_back(dir);
    for (int f = 0; f < 10; ++f) {
      const std::string file = dir + "\\f" + std::to_string(f);
      script->file(file, std::string(static_cast<std::size_t>(d * 1000), 'x') + file);
      expected.push_back(file);
    }
  }
  std::sort(expected.begin(), expected.end());
  ASSERT_TRUE(run(3));
  EXPECT_EQ(listed(3), expected);
  EXPECT_EQ(script->calls("create").size(), 4U);
}

TEST_F(Callback_Job, AgainWithWhatChanged) {
  for (unsigned channels : {1U, 3U}) {
    script->nodes.clear();
    Texts expected{"X:", "X:\\d"};
    script->dir("X:\\d");
    for (int f = 0; f < 12; ++f) {
      expected.push_back("X:\\d\\" + std::to_string(f));
      script->file(expected.back(), "1");
    }
    start();
    ASSERT_TRUE(run(channels));
    const auto earlier = job->storage.pieces;
    script->file("X:\\d\\7", "other").mtime = 1;
    script->nodes.erase("X:\\d\\3");
    script->file("X:\\d\\new", "new");
    expected.erase(std::find(expected.begin(), expected.end(), "X:\\d\\3"));
    expected.push_back("X:\\d\\new");
    std::sort(expected.begin(), expected.end());
    start();
    const std::size_t opened = script->calls("open").size();
    ASSERT_TRUE(job->run_second("X:", earlier, channels));
    EXPECT_EQ(script->calls("open").size() - opened, 2U);
    EXPECT_EQ(job->backup.summary().inc_file_count(), 2U);
    EXPECT_EQ(listed(channels, 2), expected);
  }
}

// Only a volume block leads back from a directory to the root, on each channel.
TEST_F(Callback_Job, AListerMayComeBackToTheRoot) {
  Texts given{vol_block("X:")};
  Texts expected{"X:", "X:\\d"};
  script->dir("X:\\d");
  for (int round = 0; round < 2; ++round) {
    for (const std::string& dir : {std::string("d\\"), std::string()}) {
      given.push_back(dir.empty() ? vol_block("X:") : dir_block(dir));
      for (int f = 0; f < 10; ++f) {
        const std::string name = std::to_string(round * 10 + f);
        given.push_back(file_block(name, 1));
        script->file("X:\\" + dir + name, "1");
        expected.push_back("X:\\" + dir + name);
      }
    }
  }
  given.push_back(end_block());
  std::sort(expected.begin(), expected.end());
  for (unsigned channels : {1U, 3U}) {
    start();
    script->lister = [=] { return new Block_Lister(given, channels == 1); };
    ASSERT_TRUE(run(channels));
    EXPECT_EQ(listed(channels), expected);
    EXPECT_TRUE(skipped().empty());
  }
}

TEST_F(Callback_Job, AListerWithNothingGivesAnEmptyMedia) {
  script->lister = [] { return new Block_Lister({end_block()}, false); };
  ASSERT_TRUE(run());
  EXPECT_EQ(order(), "TAPE SSET META");
}

// A list that broke off must not pass for one that ended.
TEST_F(Callback_Job, AListerThatFailsFailsTheJob) {
  script->file("X:\\f", "1");
  std::string bad = file_block("g");
  bad[62] = static_cast<char>(bad[62] ^ 1);
  for (unsigned channels : {1U, 2U}) {
    for (const Texts& rest : {Texts{}, Texts{bad, end_block()}}) {
      Texts given{vol_block("X:"), file_block("f", 1)};
      given.insert(given.end(), rest.begin(), rest.end());
      start();
      script->lister = [=] { return new Block_Lister(given, false); };
      EXPECT_FALSE(run(channels));
      EXPECT_EQ(
          job->log->count("128 Failed to execute full source producer task, last_error=-1\n") +
              job->log->count("128 Failed to execute source sharding task, last_error=-1\n"),
          1);
    }
  }
}

}  // namespace
