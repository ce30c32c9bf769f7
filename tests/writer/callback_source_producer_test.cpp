// What a job queues and tells when its sources are the host's.
#include "mtf/writer/callback_source_producer.h"

#include <gtest/gtest.h>

#include "services/filter.h"
#include "tests/support/media_bytes.h"
#include "tests/support/media_layout.h"
#include "tests/support/scripted_host.h"
#include "tests/support/test_job.h"

namespace {

using Texts = std::vector<std::string>;
using test_support::Block_Lister;
using test_support::dir_block;
using test_support::end_block;
using test_support::entry_text;
using test_support::file_block;
using test_support::Log_Lines;
using test_support::number;
using test_support::Script;
using test_support::vol_block;

struct Filter : MTF::IFilter {
  bool accept(const char* path, bool is_directory) const override {
    return on_accept(path, is_directory);
  }
  std::function<bool(const std::string&, bool)> on_accept;
};

class Callback_Producer : public testing::Test {
 protected:
  // The entries of the blocks that the listing of `sources` queues.
  Texts list(const std::list<std::string>& sources) {
    const test_support::Capture capture(log);
    MTF::Callback_Source_Producer producer(3, pre_action, &events, nullptr);
    EXPECT_EQ(producer.init(&sources, filter.on_accept ? &filter : nullptr, map,
                            test_support::scripted_factory(script)->create()),
              0);
    producer.msg_queue()->high_water_mark(~std::size_t{0} >> 1);
    result = producer.svc_i();
    if (result == -1) {
      EXPECT_EQ(producer.last_error(), -1);
      producer.msg_queue()->activate();
    }
    blocks.clear();
    Texts texts;
    while (!producer.msg_queue()->is_empty()) {
      MTF::Cat_Blk* block = nullptr;
      producer.msg_queue()->dequeue_head(block);
      blocks.emplace_back(block->data(), block->hdr().length());
      texts.push_back(blocks.back().size() > 64 ? entry_text(blocks.back())
                                                : blocks.back().substr(2, 4));
      EXPECT_EQ(block->hdr().checksum(), block->hdr().calc_checksum());
      delete block;
    }
    return texts;
  }
  Texts skipped() const { return events.texts(MTF::event_skipped); }
  void give(const Texts& given, bool views = false) {
    script->lister = [=] { return new Block_Lister(given, views); };
  }

  std::shared_ptr<Script> script = std::make_shared<Script>();
  MTF::Ref_Ptr<MTF::Writer_Hardlink_Map> map{new MTF::Writer_Hardlink_Map};
  test_support::Events events;
  Log_Lines log;
  Filter filter;
  bool pre_action = false;
  int result = 0;
  Texts blocks;
};

TEST_F(Callback_Producer, InitRefuses) {
  const test_support::Capture capture(log);
  MTF::Callback_Source_Producer producer(3, false, nullptr, nullptr);
  const MTF::Ref_Ptr<MTF::IBackup_Callback> none;
  EXPECT_EQ(producer.init(nullptr, nullptr, MTF::Ref_Ptr<MTF::Writer_Hardlink_Map>(), none), -1);
  EXPECT_TRUE(log.asserted("hardlink_map.get() is NULL"));
  EXPECT_EQ(producer.init(nullptr, nullptr, map, none), -1);
  EXPECT_TRUE(log.asserted("callback.get() is NULL"));
}

TEST_F(Callback_Producer, WalksInTheOrderOfTheMedia) {
  pre_action = true;
  script->file("X:\\z", "12");
  script->dir("X:\\d");
  script->dir("X:\\d\\e");
  script->file("X:\\d\\e\\f", "");
  script->file("X:\\d\\g", "").nlink = 2;
  script->nodes["X:\\d\\g"].stat.ino = 1ULL << 40;
  script->nodes["X:\\h"] = script->nodes["X:\\d\\g"];
  script->file("X:\\pipe", "").mode = 0x1000;
  script->file("X:\\link", "").mode = 0xA000;
  EXPECT_EQ(list({"X:"}), (Texts{"VOLB X:", "PDAT pre_action_data", "FILE h", "KNLS link", "FILE z",
                                 "DIRB d\\", "HLNK g", "DIRB d\\e\\", "FILE f", "FEND"}));
  EXPECT_EQ(result, 0);
  EXPECT_EQ(blocks[1].substr(64, 5), test::date(1970, 1, 1));
  EXPECT_EQ(number(blocks[2], 40, 2), 2U);    // the first name of a linked file
  EXPECT_EQ(number(blocks[4], 16, 8), 2U);    // its size
  EXPECT_EQ(number(blocks[4], 6, 2), 3U);     // its job
  EXPECT_EQ(number(blocks[6], 16, 8), 4U);    // the length of the first name `X:\h`
  EXPECT_EQ(number(blocks[6], 56, 4), 256U);  // the upper half of its number
  EXPECT_EQ(log.count("32 Unsupported file type, path=X:\\pipe, mode=0x1000\n"), 1);
  EXPECT_TRUE(skipped().empty());
  EXPECT_EQ(script->calls("exists"), Texts{});
  EXPECT_EQ(events.progress().total_count, 6U);
  EXPECT_EQ(events.progress().percent, 100);
}

TEST_F(Callback_Producer, GoesFromSourceToSource) {
  script->dir("X:\\a");
  script->dir("X:\\a\\b");
  script->file("X:\\a\\b\\f", "");
  script->dir("X:\\a\\c");
  script->file("X:\\a\\z", "");
  script->file("X:\\pipe", "").mode = 0x1000;
  script->file("X:\\socket", "").mode = 0xC000;
  EXPECT_EQ(
      list({"X:\\a\\\\b\\", "X:\\a\\c", "X:\\a\\z", "X:\\pipe", "X:\\socket", "X:\\none", "Y:"}),
      (Texts{"VOLB X:", "DIRB a\\", "FILE z", "DIRB a\\b\\", "FILE f", "DIRB a\\c\\",
             "VOLB Y:", "FEND"}));
  EXPECT_EQ(script->calls("begin"), (Texts{"begin X:\\a\\ X:\\a\\z", "begin X:\\a\\ X:\\a\\b\\",
                                           "begin X:\\a\\ X:\\a\\c\\", "begin Y: Y:"}));
  EXPECT_EQ(script->calls("end"),
            (Texts{"end X:\\a\\z ok", "end X:\\a\\b\\ ok", "end X:\\a\\c\\ ok", "end Y: ok"}));
  EXPECT_EQ(log.count("32 Failed to lstat, path: X:\\none, and skipp\n"), 1);
  EXPECT_EQ(events.skipped_dirs, 1U);
  EXPECT_EQ(script->calls("produced").size(), 1U);
}

TEST_F(Callback_Producer, RefusesSourcesThatAreNone) {
  struct Case {
    std::list<std::string> sources;
    char separator;
    bool asserts;
  };
  script->dir("X:\\a");
  script->dir("name");
  for (const Case& each :
       {Case{{}, '\\', false}, Case{{"X:\\none"}, '\\', false}, Case{{"name"}, '\\', true},
        Case{{"X:", "X:\\a"}, ':', true}, Case{{"X:\\a"}, '|', true}}) {
    script->separator = each.separator;
    const long lines = log.count("1024 Unexpected error in ");
    EXPECT_EQ(list(each.sources), Texts{});
    EXPECT_EQ(result, -1);
    EXPECT_EQ(log.count("1024 Unexpected error in ") - lines, each.asserts ? 1 : 0);
    EXPECT_EQ(script->calls("begin"), Texts{});
  }
  EXPECT_EQ(log.count("128 Failed to convert sources to source_list_type\n"), 5);
}

TEST_F(Callback_Producer, FiltersWithoutAnEvent) {
  filter.on_accept = [](const std::string& path, bool is_directory) {
    return path != "X:\\d" && path != "X:\\e\\f" && (path != "X:\\e\\g" || !is_directory);
  };
  script->dir("X:\\d");
  script->file("X:\\d\\f", "");
  script->dir("X:\\e");
  script->file("X:\\e\\f", "");
  script->dir("X:\\e\\g");
  EXPECT_EQ(list({"X:\\d", "X:\\e"}), (Texts{"VOLB X:", "DIRB e\\", "FEND"}));
  EXPECT_TRUE(skipped().empty());
}

TEST_F(Callback_Producer, GoesOnBehindADirectoryThatCannotBeRead) {
  script->dir("X:\\d");
  script->on_read_dir = [&](const std::string& path, Script::Entries& entries) {
    if (path != "X:") return false;
    entries.push_back({"d", {}});
    entries.back().stat.st_mode = 0x4000;
    return true;
  };
  EXPECT_EQ(list({"X:"}), (Texts{"VOLB X:", "DIRB d\\", "FEND"}));
  EXPECT_EQ(skipped(), Texts{R"({"errno":-1,"message":"Failed to open directory.",)"
                             R"("name":"X:\\d","type":"directory"})"});
  EXPECT_EQ(events.skipped_dirs, 1U);
  EXPECT_EQ(log.count("128 Failed to read entries from: X:\\d, and skipped it\n"), 1);
}

// A name like these would walk in circles or out of the directory.
TEST_F(Callback_Producer, LeavesOutEntriesWithoutANameOfTheirOwn) {
  const Texts names{"", ".", "..", "a\\b", "a/b", std::string("a\0b", 3), "ok"};
  for (const unsigned mode : {0x4000U, 0x8000U}) {
    script->on_read_dir = [&](const std::string& path, Script::Entries& entries) {
      for (const std::string& name : path == "X:" ? names : Texts{}) {
        entries.push_back({name, {}});
        entries.back().stat.st_mode = mode;
      }
      return true;
    };
    EXPECT_EQ(list({"X:"}).size(), 3U);
  }
  EXPECT_EQ(events.skipped_dirs, 6U);
  EXPECT_EQ(events.skipped_files, 6U);
  EXPECT_EQ(skipped().size(), 12U);
  EXPECT_EQ(log.count("128 Skipped an entry that has no name of its own, path=X:, name="), 12);
}

// A tree without an end is one, too.
TEST_F(Callback_Producer, LeavesOutWhatIsTooLongForABlock) {
  const std::string name(1000, 'd');
  script->on_read_dir = [&](const std::string&, Script::Entries& entries) {
    entries.push_back({name, {}});
    entries.back().stat.st_mode = 0x4000;
    entries.push_back({std::string(32768, 'f'), {}});
    entries.back().stat.st_mode = 0x8000;
    entries.push_back({std::string(70000, 'f'), {}});
    entries.back().stat.st_mode = 0x8000;
    return true;
  };
  const Texts found = list({"X:"});
  EXPECT_EQ(result, 0);
  EXPECT_EQ(found.size(), 2U + 32);  // 32 directories of 1001 bytes fit 32767
  EXPECT_EQ(events.skipped_dirs, 1U);
  EXPECT_EQ(events.skipped_files, 2U * 33);
  EXPECT_NE(skipped().back().find("Path too long."), std::string::npos);
}

TEST_F(Callback_Producer, AHookThatRefusesEndsTheListing) {
  script->dir("X:\\a");
  script->dir("X:\\b");
  script->on_begin = [](const MTF::source_entry& entry) { return entry.path != "X:\\b\\"; };
  EXPECT_EQ(list({"X:\\a", "X:\\b"}), (Texts{"VOLB X:", "DIRB a\\"}));
  EXPECT_EQ(result, -1);
  script->on_begin = nullptr;
  script->on_end = [](const MTF::source_entry&, bool) { return false; };
  EXPECT_EQ(list({"X:\\a", "X:\\b"}), (Texts{"VOLB X:", "DIRB a\\"}));
  EXPECT_EQ(result, -1);
  EXPECT_EQ(script->calls("begin").size(), 3U);
  EXPECT_EQ(script->calls("end").size(), 2U);
  EXPECT_EQ(script->calls("read_dir").size(), 2U);
  EXPECT_EQ(script->calls("produced"), Texts{});
}

// What comes behind a source that failed half way must not land in its directory.
TEST_F(Callback_Producer, AHostMayPassOverAFailedSource) {
  const std::string too_long = "X:\\" + std::string(40000, 'l');
  script->dir("X:\\a");
  script->file("X:\\a\\f", "");
  script->dir(too_long);
  script->file("Y:\\f", "");
  script->dir("Y:\\a");
  script->on_end = [](const MTF::source_entry&, bool) { return true; };
  EXPECT_EQ(list({"X:\\a", too_long, "Y:"}),
            (Texts{"VOLB X:", "DIRB a\\", "FILE f", "VOLB Y:", "FILE f", "DIRB a\\", "FEND"}));
  EXPECT_EQ(result, 0);
  EXPECT_EQ(script->calls("end " + too_long), Texts{"end " + too_long + "\\ failed"});
  EXPECT_EQ(events.skipped_dirs, 1U);
}

TEST_F(Callback_Producer, ReportsPercentsAsTheHostCounts) {
  struct Case {
    int mode;
    unsigned long long per_percent;
    unsigned files;
    int percent;  // ahead of the last file but one
    unsigned long long size;
  };
  for (const Case& each :
       {Case{0, 10000, 10001, 0, 0}, Case{0, 10000, 10002, 1, 10001}, Case{1, 10000, 10001, 0, 0},
        Case{1, 10000, 10002, 90, 0}, Case{0, 1, 300, 90, 299}, Case{0, 100, 301, 3, 300},
        Case{0, 0, 10002, 1, 10001}}) {
    test_support::Events mine;
    mine.set_channels(1);
    mine.set_progress_report_mode(each.mode);
    MTF::Event_Handler::Progress before{};
    script->per_percent = [&] {
      before = mine.progress();
      return each.per_percent;
    };
    script->on_read_dir = [&](const std::string&, Script::Entries& entries) {
      for (unsigned i = 0; i < each.files; ++i) {
        entries.push_back({std::to_string(i), {}});
        entries.back().stat.st_mode = 0x8000;
        entries.back().stat.st_size = 1;
      }
      return true;
    };
    const test_support::Capture capture(log);
    const std::list<std::string> sources{"X:"};
    MTF::Callback_Source_Producer producer(3, false, &mine, nullptr);
    producer.init(&sources, nullptr, map, test_support::scripted_factory(script)->create());
    producer.msg_queue()->high_water_mark(~std::size_t{0} >> 1);
    EXPECT_EQ(producer.svc_i(), 0);
    EXPECT_EQ(before.percent, each.percent) << each.files;
    EXPECT_EQ(before.total_size, each.size) << each.files;
    EXPECT_EQ(mine.progress().percent, 100);
    EXPECT_EQ(mine.progress().total_count, each.files);
  }
  EXPECT_EQ(log.count("128 Host counts no files to a percent, taking 10000\n"), 1);
}

TEST_F(Callback_Producer, TakesTheBlocksOfALister) {
  pre_action = true;
  script->dir("X:\\a");
  for (const bool views : {false, true}) {
    give({vol_block("X:"), file_block("top", 7), dir_block("a\\"), dir_block("a\\b\\"),
          file_block("f", 1000), vol_block("Y:"), end_block()},
         views);
    const long long before = ::time(nullptr);
    EXPECT_EQ(list({"X:"}), (Texts{"VOLB X:", "PDAT pre_action_data", "FILE top", "DIRB a\\",
                                   "DIRB a\\b\\", "FILE f", "VOLB Y:", "FEND"}));
    const auto* date = reinterpret_cast<const unsigned char*>(blocks[1].data()) + 64;
    EXPECT_GE(MTF::mtf_date_time_to_time(date), before);
    EXPECT_EQ(events.progress().total_count, 3U);
  }
  EXPECT_EQ(script->calls("begin"), Texts{});
  EXPECT_EQ(script->calls("read_dir"), Texts{});
  EXPECT_EQ(script->calls("produced").size(), 2U);
}

std::string changed(std::string block, std::size_t at, char value) {
  block[at] = value;
  return block;
}

TEST_F(Callback_Producer, RefusesBlocksThatCannotBeSaved) {
  std::string unknown = end_block();
  unknown.replace(2, 4, "WHAT");
  const unsigned sum = test_support::naive_checksum(unknown.data(), 62);
  unknown[62] = static_cast<char>(sum);
  unknown[63] = static_cast<char>(sum >> 8);
  std::string unsealed = dir_block("a\\");
  unsealed.pop_back();
  unsealed += '\\';
  const std::string start = vol_block("X:");
  struct Case {
    Texts given;
    std::string fault;
  };
  const std::string bad = "128 Source lister gave a block that can't be saved: ";
  for (const Case& each : {
           Case{{}, "128 Failed to list files from source lister.\n"},
           Case{{""}, bad + "it is empty"},
           Case{{start, "short"}, bad + "it is empty"},
           Case{{start, changed(file_block("f"), 0, 75)}, bad + "its length is wrong"},
           Case{{start, changed(file_block("f"), 0, 63)}, bad + "its length is wrong"},
           Case{{start, changed(file_block("f"), 62, 0)}, bad + "its checksum is wrong"},
           Case{{changed(end_block(), 62, 0)}, bad + "its checksum is wrong"},
           Case{{file_block("f")}, bad + "it comes before any volume"},
           Case{{dir_block("d\\"), file_block("f")}, bad + "it comes before any volume"},
           Case{{start, changed(file_block("f"), 71, 80)}, bad + "it has no name"},
           Case{{start, file_block("")}, bad + "it has no name"},
           Case{{start, vol_block("")}, bad + "it has no name"},
           Case{{start, file_block(std::string(32768, 'f'))}, bad + "its name is too long"},
           Case{{start, dir_block(std::string(32767, 'd') + "\\")}, bad + "its name is too long"},
           Case{{start, file_block("..")}, bad + "its name is none of an entry"},
           Case{{start, file_block("a\\b")}, bad + "its name is none of an entry"},
           Case{{start, dir_block("d")}, bad + "its name is none of an entry"},
           Case{{start, dir_block("\\d\\")}, bad + "its name is none of an entry"},
           Case{{start, unsealed}, bad + "its name is none of an entry"},
           Case{{unknown}, ""},
       }) {
    Texts given = each.given;
    if (!given.empty()) given.push_back(end_block());
    give(given);
    const long lines = each.fault.empty() ? 0 : log.count(each.fault);
    const bool queued = each.fault.empty();
    // What came before stands in the queue, and so does a block that nobody knows.
    const bool before = each.given.size() > 1 && each.given[0] == start;
    EXPECT_EQ(list({"X:"}).size(), before || queued ? 1U : 0U) << each.fault;
    EXPECT_EQ(result, -1) << each.fault;
    EXPECT_TRUE(queued || log.count(each.fault) - lines == 1) << each.fault;
  }
  EXPECT_EQ(script->calls("produced"), Texts{});
}

}  // namespace
