// Whole jobs whose sources are the host's: what the media holds, and what becomes of its mistakes.
#include <gtest/gtest.h>

#include <filesystem>

#include "mtf/reader/jobs.h"
#include "mtf/writer/backup_context.h"
#include "services/compression.h"
#include "tests/support/chain.h"
#include "tests/support/media_bytes.h"
#include "tests/support/media_layout.h"
#include "tests/support/scripted_host.h"
#include "tests/support/test_job.h"

namespace {

using namespace MTF;
using namespace test_support;
using Texts = std::vector<std::string>;

class Callback_Job : public testing::Test {
 protected:
  Callback_Job() { start(); }

  // A new job on the same script.
  void start() {
    job.reset();  // each takes the log for as long as it lives
    job = std::make_unique<Test_Job>();
    job->callbacks = scripted_factory(script);
  }
  bool run(unsigned long long channels = 1) { return job->run("X:", channels); }
  Texts skipped() const { return job->events.texts(event_skipped); }

  std::string stream(const std::string& id, std::size_t n = 0) const {
    return stream_data(job->media(), id, n);
  }
  // The blocks and streams of the media ahead of its end.
  std::string order() const {
    const std::string all = media_order(job->media());
    return all.substr(0, all.find(" ESET"));
  }
  std::string block(const std::string& id) const {
    const std::size_t at = job->media().find(id);
    return at == std::string::npos ? std::string(1024, '?') : job->media().substr(at);
  }

  // Paths of what the job's catalogs list, and the faults that a check of all its pieces finds.
  Texts listed(unsigned long long channels, unsigned seq = 1) {
    const auto numbers = channel_numbers(static_cast<unsigned>(channels));
    EXPECT_EQ(faults_of(job->storage.pieces, seq, numbers), "");
    test::Memory_Store store;
    store.held = job->storage.pieces;
    Texts out;
    list_job(
        store, Job_Pieces{"j", seq, numbers, true},
        [&](const Job_Entry& entry) { out.push_back(entry.path); },
        [](const MTF::Fault& fault) { ADD_FAILURE() << fault.text; });
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
  EXPECT_EQ(get_le(dirb, 12, 8), 77U);
  EXPECT_EQ(get_le(dirb, 52, 4), 0U);
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
  EXPECT_EQ(get_le(block("FILE"), 52, 4), 0x100U);
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
    job = std::make_unique<Test_Job>(test_support::Fault{Op::write, n});
    job->callbacks = scripted_factory(script);
    if (run()) break;
    without_code += job->backup.err_code() == 0 ? 1 : 0;
  }
  EXPECT_EQ(without_code, 6);
}

TEST_F(Callback_Job, Links) {
  Callback_Stat& link = script->file("X:\\link", "");
  link.mode = 0xA1FF;
  script->nodes["X:\\link"].target = "/a\\\xFF";
  script->file("X:\\unknown", "").mode = 0xA1FF;
  Callback_Stat& null = script->file("X:\\null", "");
  null.mode = 0x21B6;
  null.rdev = 0x103;
  for (const char* path : {"X:\\f1", "X:\\f2"}) {
    Callback_Stat& file = script->file(path, "hello");
    file.ino = 7;
    file.nlink = 2;
  }
  job->backup.save_links(true);
  ASSERT_TRUE(run());
  EXPECT_EQ(order(),
            "TAPE SSET META VOLB FILE STAN CSUM CTEX HLNK LINK CSUM KNLS NTRP CSUM CTEX DEVB CTEX");
  // `\a`, U+F05C for the backslash, and the stray byte.
  const std::string target("\\\0a\0\x5C\xF0\xFF\xDC", 8);
  test::Bytes reparse;
  reparse.le(0xA000000C, 4).le(12 + 16, 2).le(0, 2).le(0, 2).le(8, 2).le(8, 2).le(8, 2).le(0, 4);
  EXPECT_EQ(stream("NTRP"), reparse.raw(target + target).data);
  EXPECT_EQ(stream("LINK"), std::string("X\0:\0\\\0f\0001\0", 10));
  EXPECT_EQ(get_le(block("KNLS"), 12, 8), 4U);
  EXPECT_EQ(get_le(block("HLNK"), 12, 8), 5U);
  EXPECT_EQ(get_le(block("DEVB"), 12, 8), 0U);
  EXPECT_EQ(get_le(stream("CTEX", 2), 48, 8), 0x103U);
  EXPECT_EQ(job->log->count("32 Left out symbolic link 'X:\\unknown'"), 1);
  EXPECT_EQ(listed(1), (Texts{"X:", "X:\\f1", "X:\\f2", "X:\\link", "X:\\null"}));
  EXPECT_EQ(job->backup.summary().file_count(), 4U);
}

// Whatever becomes of the first name, no other leads to nothing: neither in this job nor in the
// next one, which takes over what it can.
TEST_F(Callback_Job, AFurtherNameTakesThePlaceOfTheFirst) {
  const std::string first = "X:\\a";
  const auto prepare = [&](const std::string& fault) {
    script = std::make_shared<Script>();
    start();
    script->dir("X:\\d");
    script->dir("X:\\e");
    for (const std::string& name : {first, std::string("X:\\d\\b"), std::string("X:\\e\\c")}) {
      Callback_Stat& file = script->file(name, "content");
      file = {0, 0, 0x81A4, 0, 7, 3, 0, 7, 0, 0, 0, 1000000000, 0, "", ""};
    }
    const auto broken = std::make_shared<bool>();
    script->on_open = [=](const std::string& path) {
      *broken = path == first && fault == "read";
      return path == first && fault == "open" ? 1 : 0;
    };
    script->on_read = [=](Buffer& data, const std::string& content, std::size_t&) {
      if (*broken) return 1;
      content.copy(data.data(), content.size());
      data.size(static_cast<unsigned>(content.size()));
      return 0;
    };
    job->backup.save_links(true);
  };
  const auto expect_names = [&](unsigned channels, unsigned seq, bool with_first) {
    EXPECT_EQ(listed(channels, seq).size(), with_first ? 6U : 5U);
    test::Memory_Store store;
    store.held = job->storage.pieces;
    const Temp_Dir to;
    const Job_Pieces pieces{"j", seq, channel_numbers(channels), true};
    EXPECT_EQ(restore_job(store, pieces, {to.path(), {}}, nullptr, nullptr).files,
              with_first ? 3U : 2U);
    EXPECT_EQ(read_file(to / "X/d/b"), "content");
    EXPECT_TRUE(std::filesystem::equivalent(to / "X/d/b", to / "X/e/c"));
    EXPECT_EQ(std::filesystem::hard_link_count(to / "X/e/c"), with_first ? 3U : 2U);
  };
  const auto is_well = [](const std::string& fault) { return fault.empty(); };
  for (const unsigned channels : {1U, 3U}) {
    for (const char* fault : {"open", "read", ""}) {
      for (const char* then : {fault, ""}) {
        SCOPED_TRACE(std::to_string(channels) + " channels, " + fault + ", then " + then);
        prepare(fault);
        ASSERT_TRUE(run(channels));
        expect_names(channels, 1, is_well(fault));
        const std::map<std::string, std::string> earlier = job->storage.pieces;
        prepare(then);
        ASSERT_TRUE(job->run_second("X:", earlier, channels));
        expect_names(channels, 2, is_well(then));
        EXPECT_EQ(job->backup.summary().inc_file_count(), is_well(fault)  ? 0U
                                                          : is_well(then) ? 3U
                                                                          : 2U);
      }
    }
  }
}

int put(Buffer& data, std::size_t n) {
  std::fill_n(data.data(), std::min<std::size_t>(n, data.capacity()), 'x');
  data.size(static_cast<unsigned int>(n));
  return 0;
}

TEST_F(Callback_Job, ReadersThatGiveAnotherSizeThanTheyDeclare) {
  const struct {
    unsigned long long declared;
    std::function<int(Buffer&)> read;
    std::size_t given;  // of the bytes declared; zeros follow
  } cases[] = {
      {100, [](Buffer& b) { return put(b, 101); }, 100},
      {100, [](Buffer& b) { return put(b, 30); }, 100},
      {200000, [](Buffer& b) { return b.expand(300000), put(b, 300000); }, 200000},
      {100, [](Buffer&) { return 1; }, 0},
      {100, [](Buffer& b) { return put(b, 0); }, 0},
      {100, [](Buffer&) { return 0; }, 0},
      {100, [n = 0](Buffer& b) mutable { return n++ == 0 ? put(b, 60) : 1; }, 60},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(&each - cases);
    start();
    script->file("X:\\f", "").size = each.declared;
    script->file("X:\\g", "");
    script->on_read = [read = each.read](Buffer& data, auto&...) { return read(data); };
    ASSERT_TRUE(run());
    EXPECT_EQ(stream("STAN"),
              std::string(each.given, 'x') + std::string(each.declared - each.given, '\0'));
    const bool corrupt = each.given < each.declared;
    EXPECT_EQ(order(), corrupt ? "TAPE SSET META VOLB FILE STAN CFIL FILE STAN CTEX"
                               : "TAPE SSET META VOLB FILE STAN CSUM CTEX FILE STAN CTEX");
    EXPECT_EQ(job->events.all(event_corrupt).size(), corrupt ? 1U : 0U);
    EXPECT_EQ(listed(1), corrupt ? (Texts{"X:", "X:\\g"}) : (Texts{"X:", "X:\\f", "X:\\g"}));
    if (corrupt) {
      EXPECT_EQ(get_le(block("CFIL"), 52, 4), 0x10000U);
      EXPECT_EQ(get_le(block("CFIL"), 72, 2), 1U);
    }
  }
}

// After one of these the host isn't asked for another file.
TEST_F(Callback_Job, MistakesThatStopAJob) {
  const struct {
    std::function<void(Script&)> make;
    const char* line;
  } cases[] = {
      {[](Script& host) { host.on_read = [](auto&...) { return -1; }; }, ""},
      {[](Script& host) { host.on_read = [](Buffer& b, auto&...) { return put(b, 0x10001); }; },
       "128 File reader gave 65537 bytes where there is room for 65536, path='X:\\f'\n"},
      {[](Script& host) { host.on_open = [](auto&) { return -1; }; }, ""},
      {[](Script& host) { host.on_close = [] { return -1; }; },
       "128 Failed to close file reader on File_Blk_Writer_Callback\n"},
      {[](Script& host) { host.gives_reader = false; }, ""},
      {[](Script& host) { host.callbacks = 0; }, ""},  // for the task
      {[](Script& host) { host.callbacks = 1; }, ""},  // for the producer
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(&each - cases);
    script = std::make_shared<Script>();
    script->file("X:\\f", "1");
    script->file("X:\\g", "2");
    each.make(*script);
    start();
    EXPECT_FALSE(run());
    EXPECT_LE(script->calls("open").size(), 1U);
    EXPECT_TRUE(*each.line == '\0' || job->log->count(each.line) == 1);
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
    constexpr unsigned directory = 0x4000, file = 0x8000;
    if (path != "X:") return entries.push_back(dir_entry("f", file)), true;
    for (const char* name : {"closed", "gone", "odd"}) entries.push_back(dir_entry(name, file));
    for (const char* name : {"away", "d"}) entries.push_back(dir_entry(name, directory));
    return true;
  };
  ASSERT_TRUE(run());
  EXPECT_EQ(skipped(),
            (Texts{
                R"({"errno":0,"message":"Failed to open file","name":"X:\\closed","type":"file"})",
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
  for (const char* source : {"X:", "X:/d"}) {
    start();
    ASSERT_TRUE(job->run(source));
    EXPECT_EQ(listed(1), (Texts{"X:", "X:\\d", "X:\\d\\f"}));
  }
  EXPECT_EQ(script->calls("lstat X:/"), (Texts{"lstat X:/d\\", "lstat X:/d", "lstat X:/d\\"}));
  EXPECT_EQ(script->calls("lstat X:\\"), (Texts{"lstat X:\\d\\f", "lstat X:\\d\\f"}));
}

// A full job and one with what changed, compressed, with names that fill streams of their own.
TEST_F(Callback_Job, AgainWithWhatChanged) {
  for (unsigned channels : {1U, 3U}) {
    script = std::make_shared<Script>();
    Texts expected{"X:"};
    for (const std::string& dir : {std::string("X:\\d"), "X:\\" + std::string(2000, 'l')}) {
      script->dir(dir);
      expected.push_back(dir);
      for (int f = 0; f < 30; ++f) {
        expected.push_back(dir + "\\" + std::to_string(f) + std::string(f == 9 ? 3000 : 0, 'n'));
        script->file(expected.back(), std::string(static_cast<std::size_t>(f) * 5000, 'x'));
      }
    }
    std::sort(expected.begin(), expected.end());
    start();
    job->compression = compression_lz4;
    ASSERT_TRUE(run(channels));
    EXPECT_EQ(listed(channels), expected);
    EXPECT_EQ(script->calls("create").size(), channels + 1);
    EXPECT_NE(media_order(job->media(channels == 1 ? 0 : 1)).find("DIRB PNAM CTEX"),
              std::string::npos);
    const auto earlier = job->storage.pieces;
    for (const char* name : {"7", "10", "11", "12", "13"}) {
      script->file(std::string("X:\\d\\") + name, "other").mtime = 1;
    }
    script->nodes.erase("X:\\d\\3");
    script->file("X:\\d\\new", "new");
    *std::find(expected.begin(), expected.end(), "X:\\d\\3") = "X:\\d\\new";
    std::sort(expected.begin(), expected.end());
    start();
    const std::size_t opened = script->calls("open").size();
    ASSERT_TRUE(job->run_second("X:", earlier, channels));
    EXPECT_EQ(script->calls("open").size() - opened, 6U);
    EXPECT_EQ(job->backup.summary().inc_file_count(), 6U);
    EXPECT_EQ(job->events.progress().total_count, 6U) << "of all channels";
    EXPECT_EQ(listed(channels, 2), expected);
  }
}

// Only a volume block leads back from a directory to the root, on each channel. A list that broke
// off must not pass for one that ended.
TEST_F(Callback_Job, AListerMayComeBackToTheRootButNotBreakOff) {
  Texts given, expected{"X:", "X:\\d"};
  script->dir("X:\\d");
  for (int round = 0; round < 40; ++round) {
    const std::string dir = round / 10 % 2 == 0 ? "" : "d\\";
    if (round % 10 == 0) given.push_back(dir.empty() ? vol_block("X:") : dir_block(dir));
    const std::string name = std::to_string(round);
    given.push_back(file_block(name, 1));
    script->file("X:\\" + dir + name, "1");
    expected.push_back("X:\\" + dir + name);
  }
  std::sort(expected.begin(), expected.end());
  for (unsigned channels : {1U, 3U}) {
    for (const Texts& end : {Texts{end_block()}, Texts{}, Texts{std::string(64, '!')}}) {
      Texts all = given;
      all.insert(all.end(), end.begin(), end.end());
      start();
      script->lister = [=] { return new Block_Lister(all, channels == 1); };
      const bool ends = end == Texts{end_block()};
      EXPECT_EQ(run(channels), ends);
      EXPECT_TRUE(skipped().empty());
      if (ends) {
        EXPECT_EQ(listed(channels), expected);
      }
      const char* const task = channels == 1 ? "full source producer" : "source sharding";
      EXPECT_EQ(
          job->log->count(std::string("128 Failed to execute ") + task + " task, last_error=-1\n"),
          ends ? 0 : 1);
    }
  }
}

}  // namespace
