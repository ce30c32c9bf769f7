// What the walk of a job's sources queues and tells, on its own thread (the plain walk) and with
// several.
#include "mtf/writer/source_producer.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <thread>

#include "platform/native_path.h"
#include "tests/support/filter.h"
#include "tests/support/queue.h"
#include "tests/support/test_job.h"

namespace {

using namespace MTF;
using namespace test_support;
using Lines = std::vector<std::string>;

constexpr int plain = 1;

// Keeps all, and takes its time now and then.
bool dawdle(const std::string&, bool) {
  thread_local std::mt19937 random(
      static_cast<unsigned int>(std::hash<std::thread::id>()(std::this_thread::get_id())));
  const auto turns = random() % 8 == 0 ? random() % 20 : 0;
  for (unsigned int i = 0; i < turns; ++i) std::this_thread::yield();
  return true;
}

// Fills a directory with files, links and directories, the same for each state of `random`. Names
// are prefixes of one another, and have bytes on both sides of a backslash.
void fill(const std::string& top, int levels, std::mt19937& random, Lines& paths) {
  for (const std::string& end : all_strings(Lines{".", "]", "\xFF", "\\", "\x01"}, 2)) {
    const std::string path = top + "/a" + end;
    const auto kind = random() % 8;
    if (kind == 0 && levels > 0) {
      ASSERT_EQ(::mkdir(path.c_str(), 0755), 0);
      fill(path, levels - 1, random, paths);
    } else if (kind == 1) {
      ASSERT_EQ(::symlink("/", path.c_str()), 0);
    } else if (kind > 5 || paths.empty() ||
               ::link(paths[random() % paths.size()].c_str(), path.c_str()) != 0) {
      write_file(path, std::string(kind, 'x'));
    }
    paths.push_back(path);
  }
}

// A walk of sources on the volumes `X:`, the test's directory, and `Y:`, `y` in it.
class Source_Walk : public testing::TestWithParam<int> {
 protected:
  Source_Walk() {
    platform::Volume_Roots::instance().set("X:", dir.path());
    platform::Volume_Roots::instance().set("Y:", dir / "y");
  }
  ~Source_Walk() override { platform::Volume_Roots::instance().clear(); }

  void make_dirs(std::initializer_list<const char*> names) const {
    for (const char* name : names) ASSERT_EQ(::mkdir((dir / name).c_str(), 0755), 0);
  }

  std::unique_ptr<Source_Producer> producer(const std::list<std::string>& sources, int threads) {
    auto made = std::make_unique<Source_Producer>(3, pre_action, &events, log);
    made->exclude_list({"X:\\tree\\dx"});
    made->init(&sources, &filter, map, volumes.empty() ? nullptr : &volumes, cache.path(), threads,
               0);
    return made;
  }

  // The bytes of all blocks.
  Lines walk(const std::list<std::string>& sources, int threads) {
    const Capture capture(*log);
    map = make_writer_hardlink_map();
    const auto task = producer(sources, threads);
    task->msg_queue()->high_water_mark(~std::size_t{0} >> 1);
    EXPECT_EQ(task->svc_i(), 0);
    return take_blocks(*task->msg_queue());
  }
  Lines names(const std::list<std::string>& sources, int threads) {
    return entry_texts(walk(sources, threads));
  }
  Lines skipped() const {
    Lines texts = events.texts(event_skipped);
    std::sort(texts.begin(), texts.end());
    return texts;
  }

  const Temp_Dir dir, cache;
  Events events;
  std::shared_ptr<Log_Lines> log = std::make_shared<Log_Lines>();
  Ref_Ptr<Writer_Hardlink_Map> map = make_writer_hardlink_map();
  std::map<std::string, std::string> volumes;
  Filter filter{dawdle};
  bool pre_action = false;
};

INSTANTIATE_TEST_SUITE_P(Threads, Source_Walk, testing::Values(plain, 2, 4));

std::string skip(const std::string& type, const std::string& name, const std::string& error,
                 const std::string& message) {
  return R"({"errno":)" + error + R"(,"message":")" + message + R"(","name":"X:)" + name +
         R"(","type":")" + type + "\"}";
}

// A tree with what a file system can hold.
TEST_P(Source_Walk, OfANastyTree) {
  make_dirs({"tree", "tree/de", "tree/df", "tree/dx", "tree/sub"});
  const std::string long_name(255, 'n');
  for (const char* file : {"0", "back\\slash", "bad\xFF", "f.tmp", "first", "new\nline", "df/x",
                           "dx/x", long_name.c_str()}) {
    write_file(dir / "tree/" + file, "");
  }
  write_file(dir / "tree/sub/65536", std::string(65536, 'a'));
  write_file(dir / "tree/sub/65537", std::string(65537, 'a'));
  ASSERT_EQ(::link((dir / "tree/first").c_str(), (dir / "tree/sub/second").c_str()), 0);
  ASSERT_EQ(::symlink("first", (dir / "tree/link").c_str()), 0);
  ASSERT_EQ(::mkfifo((dir / "tree/fifo").c_str(), 0600), 0);
  filter.on_accept = [](const std::string& path, bool is_directory) {
    return !ends_with(path, is_directory ? "df" : ".tmp");
  };
  const Lines blocks = walk({"X:\\tree", "X:\\tree\\sub", "X:\\tree\\first"}, GetParam());
  Lines found = entry_texts(blocks);
  if (GetParam() == plain) {
    // The block of a directory that is excluded goes out ahead of the look into it.
    const auto excluded = std::find(found.begin(), found.end(), "DIRB tree\\dx\\");
    ASSERT_NE(excluded, found.end());
    found.erase(excluded);
  }
  EXPECT_EQ(found, (Lines{"VOLB X:", "DIRB tree\\", "FILE 0", "FILE back\xEF\x81\x9Cslash",
                          "FILE bad\xFF", "FILE first", "KNLS link", "FILE new\nline",
                          "FILE " + long_name, "DIRB tree\\de\\", "DIRB tree\\sub\\", "FILE 65536",
                          "FILE 65537", "HLNK second", "FEND"}));
  EXPECT_EQ(get_le(blocks[2], 40, 2), 0U);
  EXPECT_EQ(get_le(blocks[5], 40, 2), 2U);  // the first name of a linked file
  EXPECT_EQ(skipped(),
            (Lines{skip("directory", R"(\\tree\\dx)", "null", "Excluded by exclude list."),
                   skip("directory", R"(\\tree\\df)", "null", "Excluded by filter."),
                   skip("file", R"(\\tree\\f.tmp)", "null", "Excluded by filter."),
                   skip("file", R"(\\tree\\fifo)", "null",
                        GetParam() == plain ? "Unsupported file type"
                                            : "Unsupported file type(0x1180)")}));
  EXPECT_EQ(log->count("32 Unsupported file type, path=X:\\tree\\fifo, mode=0x1180\n"), 1);
  EXPECT_EQ(events.skipped_dirs + events.skipped_files, 0U);
  const auto progress = events.progress();
  EXPECT_EQ(progress.percent, 100);
  EXPECT_EQ(progress.total_count, 10U);
  // The link's own size and the length of the first name count like the sizes of files.
  EXPECT_EQ(progress.total_size, 65536U + 65537 + 5 + std::string("X:\\tree\\first").size());
}

TEST_F(Source_Walk, QueuesTheSameWithAnyNumberOfThreads) {
  const unsigned int seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  for (unsigned int round = 0; round < 8; ++round) {
    const Temp_Dir top;
    std::mt19937 random(seed + round);
    Lines paths;
    fill(top.path(), 2, random, paths);
    std::list<std::string> sources{top.path()};
    if (round % 2 != 0) {
      sources = {top / "none"};
      write_file(sources.front(), "");
      std::copy_if(paths.begin(), paths.end(), std::back_inserter(sources),
                   [&](const std::string&) { return random() % 4 == 0; });
    }
    const Lines wanted = walk(sources, plain);
    for (int threads = 2; threads <= 8; ++threads) {
      EXPECT_EQ(walk(sources, threads), wanted) << threads << " threads, round " << round;
    }
  }
}

TEST_P(Source_Walk, OfVolumesSharedParentsAndShadows) {
  make_dirs({"a", "a/b", "a/c", "y", "y/e", "snap", "snap/real", "snap/real/s"});
  for (const char* file : {"a/b/f", "a/c/g", "a/h", "y/e/i", "y/j", "snap/real/s/of_x"}) {
    write_file(dir / file, "");
  }
  EXPECT_EQ(names({"Y:", "X:\\a\\b", "X:\\a\\c\\g", "X:\\a\\h"}, GetParam()),
            (Lines{"VOLB X:", "DIRB a\\", "FILE h", "DIRB a\\b\\", "FILE f", "DIRB a\\c\\",
                   "FILE g", "VOLB Y:", "FILE j", "DIRB e\\", "FILE i", "FEND"}));
  ASSERT_EQ(::symlink("real", (dir / "snap/link").c_str()), 0);
  volumes["X:"] = dir / "snap/link";
  pre_action = true;
  EXPECT_EQ(names({"X:", "Y:\\e"}, GetParam()),
            (Lines{"VOLB X:", "PDAT pre_action_data", "DIRB s\\", "FILE of_x",
                   "VOLB Y:", "DIRB e\\", "FILE i", "FEND"}));
  EXPECT_EQ(names({}, plain), Lines{"FEND"});
}

TEST_P(Source_Walk, OnlyADirectoryThatIsSavedCoversASource) {
  make_dirs({"tree", "tree/dx", "real"});
  for (const char* file : {"tree/dx/f", "real/g"}) write_file(dir / file, "");
  ASSERT_EQ(::symlink("real", (dir / "way").c_str()), 0);
  for (const char* dropped : {"\\none", "\\f"}) {
    filter.on_accept = [=](const std::string& path, bool) { return !ends_with(path, dropped); };
    EXPECT_EQ(names({"X:\\tree\\dx", "X:\\tree\\dx\\f", "X:\\way", "X:\\way\\g"}, GetParam()),
              (Lines{"VOLB X:", "KNLS way", "DIRB tree\\", "DIRB tree\\dx\\", "FILE f",
                     "DIRB way\\", "FILE g", "FEND"}));
  }
}

TEST_P(Source_Walk, ADirectoryTooDeepForABlockIsTold) {
  std::string deep;
  while (deep.size() < 32766) deep += deep.size() < 3000 ? "/d" : '/' + std::string(250, 'd');
  deep.resize(32766);
  ASSERT_EQ(platform::make_dirs(dir.path() + deep + "/x/y", 0700), 0);
  ::rlimit stack{};
  ASSERT_EQ(::getrlimit(RLIMIT_STACK, &stack), 0);
  const ::rlimit small{1U << 18, stack.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_STACK, &small), 0);
  const Lines entries = names({"X:"}, GetParam());
  ASSERT_EQ(::setrlimit(RLIMIT_STACK, &stack), 0);
  ASSERT_GT(entries.size(), 2U);
  // The path without its first slash and with a separator at its end.
  EXPECT_EQ(entries[entries.size() - 2].size(), std::string("DIRB ").size() + MTF_PATH_MAX - 1);
  ASSERT_EQ(skipped().size(), 1U);
  EXPECT_EQ(skipped()[0].rfind(R"({"errno":36,"message":"Path too long.","name":"X:\\d)", 0), 0U);
  EXPECT_EQ(events.skipped_dirs, 1U);
  const std::list<std::string> sources{dir.path() + deep + "/x/y"};
  EXPECT_EQ(producer(sources, GetParam())->svc_i(), -1);
  EXPECT_EQ(events.skipped_dirs, 2U);
}

TEST_P(Source_Walk, EndsWhenItsReaderGoesAway) {
  for (int d = 0; d < 20; ++d) {
    const std::string sub = dir / std::to_string(d);
    ASSERT_EQ(::mkdir(sub.c_str(), 0755), 0);
    for (int f = 0; f < 5; ++f) write_file(sub + "/" + std::to_string(f), "");
  }
  const std::list<std::string> sources{"X:"};
  for (int stop = 0; stop < 30; ++stop) {
    const auto task = producer(sources, GetParam());
    task->msg_queue()->high_water_mark(10 * sizeof(Cat_Blk));
    ASSERT_EQ(task->activate(0, 1), 0);
    for (int i = 0; i < stop; ++i) {
      Cat_Blk* block = nullptr;
      ASSERT_NE(task->msg_queue()->dequeue_head(block), -1);
      delete block;
    }
    task->msg_queue()->deactivate();
    task->wait();
    EXPECT_EQ(task->last_error(), -1);
  }
  EXPECT_GT(log->count("128 Failed to write item, type="), 0);
}

TEST_F(Source_Walk, TellsTheJobsLogWhatItsThreadsLeaveOut) {
  make_dirs({"tree", "tree/dx"});
  const std::list<std::string> sources{"X:\\tree"};
  const auto task = producer(sources, 2);
  ASSERT_EQ(task->activate(0, 1), 0);
  task->wait();
  EXPECT_NE(log->text().find("Exclude path: X:\\tree\\dx\n"), std::string::npos);
  EXPECT_NE(log->text().find("ends with 1 source entries, 0 dirs, 0 files and 0 entries skipped."),
            std::string::npos);
}

}  // namespace
