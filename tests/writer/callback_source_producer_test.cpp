// What a job queues and tells when its sources are the host's.
#include "mtf/writer/callback_source_producer.h"

#include <gtest/gtest.h>

#include "tests/support/filter.h"
#include "tests/support/media_bytes.h"
#include "tests/support/queue.h"
#include "tests/support/scripted_host.h"
#include "tests/support/test_job.h"

namespace {

using namespace test_support;
using Texts = std::vector<std::string>;

constexpr unsigned directory = 0x4000, file = 0x8000;

class Callback_Producer : public testing::Test {
 protected:
  // The entries of the blocks that the listing of `sources` queues.
  Texts list(const std::list<std::string>& sources) {
    const Capture capture(log);
    MTF::Callback_Source_Producer producer(1, pre_action, &events, nullptr);
    EXPECT_EQ(producer.init(&sources, &filter, map, scripted_factory(script)->create()), 0);
    producer.msg_queue()->high_water_mark(~std::size_t{0} >> 1);
    result = producer.svc_i();
    EXPECT_EQ(producer.last_error(), result);
    producer.msg_queue()->activate();
    blocks = take_blocks(*producer.msg_queue());
    return entry_texts(blocks);
  }
  Texts skipped() const { return events.texts(MTF::event_skipped); }

  std::shared_ptr<Script> script = std::make_shared<Script>();
  MTF::Ref_Ptr<MTF::Writer_Hardlink_Map> map{new MTF::Writer_Hardlink_Map};
  Events events;
  Log_Lines log;
  Filter filter{[](auto&&...) { return true; }};
  bool pre_action = false;
  int result = 0;
  Texts blocks;
};

TEST_F(Callback_Producer, WalksInTheOrderOfTheMedia) {
  pre_action = true;
  for (const char* path : {"X:\\d", "X:\\d\\e"}) script->dir(path);
  script->file("X:\\z", "12");
  script->file("X:\\d\\e\\f", "");
  for (const char* path : {"X:\\d\\g", "X:\\h"}) {
    script->file(path, "").nlink = 2;
    script->nodes[path].stat.ino = 1ULL << 40;
  }
  script->file("X:\\pipe", "").mode = 0x1000;
  script->file("X:\\link", "").mode = 0xA000;
  EXPECT_EQ(list({"X:"}), (Texts{"VOLB X:", "PDAT pre_action_data", "FILE h", "KNLS link", "FILE z",
                                 "DIRB d\\", "HLNK g", "DIRB d\\e\\", "FILE f", "FEND"}));
  EXPECT_EQ(result, 0);
  EXPECT_EQ(blocks[1].substr(64, 5), test::date(1970, 1, 1));
  EXPECT_EQ(get_le(blocks[2], 40, 2), 2U);    // the first name of a linked file
  EXPECT_EQ(get_le(blocks[4], 16, 8), 2U);    // its size
  EXPECT_EQ(get_le(blocks[4], 6, 2), 1U);     // its job
  EXPECT_EQ(get_le(blocks[6], 16, 8), 4U);    // the length of the first name `X:\h`
  EXPECT_EQ(get_le(blocks[6], 56, 4), 256U);  // the upper half of its number
  EXPECT_EQ(log.count("32 Unsupported file type, path=X:\\pipe, mode=0x1000\n"), 1);
  EXPECT_TRUE(skipped().empty());
  EXPECT_EQ(script->calls("exists"), Texts{});
  EXPECT_EQ(events.progress().total_count, 6U);
  EXPECT_EQ(events.progress().percent, 100);
}

TEST_F(Callback_Producer, GoesFromSourceToSource) {
  for (const char* path : {"X:\\a", "X:\\a\\b", "X:\\a\\c"}) script->dir(path);
  for (const char* path : {"X:\\a\\b\\f", "X:\\a\\z"}) script->file(path, "");
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
  script->separator = '/';
  EXPECT_EQ(list({"X:/a//b/", "X:/a/c", "X:/a/z", "Y:"}),
            (Texts{"VOLB X:", "DIRB a\\", "FILE z", "DIRB a\\b\\", "FILE f", "DIRB a\\c\\",
                   "VOLB Y:", "FEND"}));
  EXPECT_EQ(script->calls("begin X:/"),
            (Texts{"begin X:/a/ X:/a/z", "begin X:/a/ X:/a/b/", "begin X:/a/ X:/a/c/"}));
}

TEST_F(Callback_Producer, RefusesSourcesThatAreNone) {
  struct Case {
    std::list<std::string> sources;
    char separator;
    bool asserts;
  };
  for (const char* path : {"X:\\a", "X:\\a\\b", "X:\\a\\..", "name"}) script->dir(path);
  for (const Case& each :
       {Case{{}, '\\', false}, Case{{"X:\\none"}, '\\', false}, Case{{"name"}, '\\', true},
        Case{{"X:", "X:\\a"}, ':', true}, Case{{"X:\\a"}, '|', true}, Case{{"X:/a\\b"}, '/', false},
        Case{{"X:\\a\\.."}, '\\', false}}) {
    script->separator = each.separator;
    const long lines = log.count("1024 Unexpected error in ");
    EXPECT_EQ(list(each.sources), Texts{});
    EXPECT_EQ(result, -1);
    EXPECT_EQ(log.count("1024 Unexpected error in ") - lines, each.asserts ? 1 : 0);
    EXPECT_EQ(script->calls("begin"), Texts{});
  }
  EXPECT_EQ(log.count("128 Failed to convert sources to source_list_type\n"), 7);
}

TEST_F(Callback_Producer, FiltersWithoutAnEvent) {
  filter.on_accept = [](const std::string& path, bool is_directory) {
    return path != "X:\\d" && path != "X:\\e\\f" && (path != "X:\\e\\g" || !is_directory);
  };
  for (const char* path : {"X:\\d", "X:\\e", "X:\\e\\g"}) script->dir(path);
  for (const char* path : {"X:\\d\\f", "X:\\e\\f"}) script->file(path, "");
  EXPECT_EQ(list({"X:\\d", "X:\\e"}), (Texts{"VOLB X:", "DIRB e\\", "FEND"}));
  EXPECT_TRUE(skipped().empty());
}

// A name like most of these would walk in circles or out of the directory.
TEST_F(Callback_Producer, LeavesOutWhatHasNoNameOfItsOwnOrCannotBeRead) {
  const Texts names{"", ".", "..", "a\\b", "a/b", std::string("a\0b", 3), "ok"};
  script->on_read_dir = [&](const std::string& path, Script::Entries& entries) {
    if (path != "X:") return false;
    for (const std::string& name : names) {
      entries.push_back(dir_entry(name, directory));
      entries.push_back(dir_entry(name, file));
    }
    return true;
  };
  EXPECT_EQ(list({"X:"}), (Texts{"VOLB X:", "DIRB ok\\", "FEND"}));
  EXPECT_EQ(events.skipped_dirs, 6U + 1);
  EXPECT_EQ(events.skipped_files, 7U);
  EXPECT_EQ(skipped().size(), 14U);
  EXPECT_EQ(skipped().back(), R"({"errno":-1,"message":"Failed to open directory.",)"
                              R"("name":"X:\\ok","type":"directory"})");
  EXPECT_EQ(log.count("128 Skipped an entry that has no name of its own, path=X:, name="), 13);
  EXPECT_EQ(log.count("128 Failed to read entries from: X:\\ok, and skipped it\n"), 1);
}

// A tree without an end is one, too.
TEST_F(Callback_Producer, LeavesOutWhatIsTooLongForABlock) {
  script->on_read_dir = [&](const std::string&, Script::Entries& entries) {
    entries = {dir_entry(std::string(1000, 'd'), directory),
               dir_entry(std::string(32768, 'f'), file), dir_entry(std::string(70000, 'f'), file)};
    return true;
  };
  EXPECT_EQ(list({"X:"}).size(), 2U + 32);  // 32 directories of 1001 bytes fit 32767
  EXPECT_EQ(result, 0);
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
  for (const std::string& path : {std::string("X:\\a"), too_long, std::string("Y:\\a")}) {
    script->dir(path);
  }
  for (const char* path : {"X:\\a\\f", "Y:\\f"}) script->file(path, "");
  script->on_end = [](const MTF::source_entry&, bool) { return true; };
  EXPECT_EQ(list({"X:\\a", too_long, "Y:"}),
            (Texts{"VOLB X:", "DIRB a\\", "FILE f", "VOLB Y:", "FILE f", "DIRB a\\", "FEND"}));
  EXPECT_EQ(result, 0);
  EXPECT_EQ(script->calls("end " + too_long), Texts{"end " + too_long + "\\ failed"});
  EXPECT_EQ(events.skipped_dirs, 1U);
}

TEST_F(Callback_Producer, ReportsPercentsAsTheHostCounts) {
  const struct {
    int mode;
    unsigned long long per_percent;
    unsigned files;
    int percent;  // ahead of the last file but one
    unsigned long long size;
  } cases[] = {{0, 100, 101, 0, 0},
               {0, 100, 102, 1, 101},
               {1, 100, 102, 90, 0},
               {0, 1, 300, 90, 299},
               {0, 0, 10002, 1, 10001}};
  for (const auto& each : cases) {
    SCOPED_TRACE(each.files);
    events.total_size(0, 0, 0);
    events.refresh_total_count(0, 0);
    events.set_progress_report_mode(each.mode);
    MTF::Event_Handler::Progress before{};
    script->per_percent = [&] {
      before = events.progress();
      return each.per_percent;
    };
    script->on_read_dir = [&](const std::string&, Script::Entries& entries) {
      for (unsigned i = 0; i < each.files; ++i) {
        entries.push_back(dir_entry(std::to_string(i), file));
        entries.back().stat.st_size = 1;
      }
      return true;
    };
    EXPECT_EQ(list({"X:"}).size(), each.files + 2);
    EXPECT_EQ(before.percent, each.percent);
    EXPECT_EQ(before.total_size, each.size);
    EXPECT_EQ(events.progress().percent, 100);
    EXPECT_EQ(events.progress().total_count, each.files);
  }
  EXPECT_EQ(log.count("128 Host counts no files to a percent, taking 10000\n"), 1);
}

TEST_F(Callback_Producer, TakesTheBlocksOfALister) {
  pre_action = true;
  const Texts given{vol_block("X:"), file_block("top", 7), dir_block("a\\"), vol_block("Y:"),
                    end_block()};
  script->lister = [=] { return new Block_Lister(given, true); };
  const long long before = ::time(nullptr);
  EXPECT_EQ(list({"X:"}),
            (Texts{"VOLB X:", "PDAT pre_action_data", "FILE top", "DIRB a\\", "VOLB Y:", "FEND"}));
  const auto* date = reinterpret_cast<const unsigned char*>(blocks[1].data()) + 64;
  EXPECT_GE(MTF::mtf_date_time_to_time(date), before);
  EXPECT_EQ(events.progress().total_count, 2U);
  EXPECT_EQ(script->calls("begin"), Texts{});
  EXPECT_EQ(script->calls("read_dir"), Texts{});
  EXPECT_EQ(script->calls("produced").size(), 1U);
}

std::string changed(std::string block, std::size_t at, char value) {
  block[at] = value;
  return block;
}

TEST_F(Callback_Producer, RefusesBlocksThatCannotBeSaved) {
  std::string unknown = end_block();
  unknown.replace(2, 4, "WHAT");
  test::seal_record(unknown, 0);
  std::string other = file_block("f");
  test::set_le(other, 6, 2, 2);
  test::seal_record(other, 0);
  const std::string start = vol_block("X:"), hole("a\0\0b", 4);
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
           Case{{start, changed(dir_block("a\\"), 74, '\\')}, bad + "its name is none of an entry"},
           Case{{start, dir_block("a\\..\\b\\")}, bad + "its name is none of an entry"},
           Case{{start, dir_block(hole + "\\")}, bad + "its name is none of an entry"},
           Case{{start, dir_block("a/b\\")}, bad + "its name is none of an entry"},
           Case{{vol_block("..")}, bad + "its name is none of an entry"},
           Case{{vol_block(hole)}, bad + "its name is none of an entry"},
           Case{{vol_block("X:\\a")}, bad + "its name is none of an entry"},
           Case{{start, other}, bad + "it is of another job"},
           Case{{unknown}, ""},
       }) {
    Texts given = each.given;
    if (!given.empty()) given.push_back(end_block());
    script->lister = [=] { return new Block_Lister(given, false); };
    const long lines = log.count(each.fault);
    const bool is_unknown = each.fault.empty();
    // What came before stands in the queue, and so does a block that nobody knows.
    const bool before = each.given.size() > 1 && each.given[0] == start;
    EXPECT_EQ(list({"X:"}).size(), before || is_unknown ? 1U : 0U) << each.fault;
    EXPECT_EQ(result, -1) << each.fault;
    EXPECT_TRUE(is_unknown || log.count(each.fault) - lines == 1) << each.fault;
  }
  EXPECT_EQ(script->calls("produced"), Texts{});
}

}  // namespace
