// What a job's walk queues and tells, on its own thread (the plain walk) and with several.
#include <ace/Log_Msg_Callback.h>
#include <ace/Log_Record.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <mutex>
#include <thread>

#include "mtf/writer/source_producer.h"
#include "platform/native_path.h"
#include "services/json_spirit.h"
#include "tests/support/random_tree.h"

namespace {

using test_support::Random_Tree;
using test_support::Temp_Dir;
using test_support::write_file;

constexpr int plain = 1;

class Events : public MTF::Event_Handler {
 public:
  int handle_event(int code, const json_spirit::Value& document) override {
    const std::lock_guard<std::mutex> guard(lock_);
    EXPECT_EQ(code, MTF::event_skipped);
    skipped.push_back(document);
    return 0;
  }

  std::vector<json_spirit::Value> skipped;

 private:
  std::mutex lock_;
};

// Calls `on_accept` with each path.
class Filter : public MTF::IFilter {
 public:
  explicit Filter(std::function<bool(const std::string&)> on_accept)
      : on_accept_(std::move(on_accept)) {}
  bool accept(const char* path, bool) const override { return on_accept_(path); }

 private:
  std::function<bool(const std::string&)> on_accept_;
};

// Keeps all, and takes its time now and then.
bool dawdle(const std::string&) {
  thread_local std::mt19937 random(
      static_cast<unsigned int>(std::hash<std::thread::id>()(std::this_thread::get_id())));
  const auto turns = random() % 8 == 0 ? random() % 20 : 0;
  for (unsigned int i = 0; i < turns; ++i) std::this_thread::yield();
  return true;
}

bool ends_with(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

struct Walk {
  explicit Walk(int n) : threads(n) {}

  // The bytes of all blocks that the walk of `sources` queues.
  std::vector<std::string> blocks(const std::list<std::string>& sources) {
    MTF::Source_Producer producer(3, true, &events, nullptr);
    const Filter filter(on_accept);
    excludes.push_back("/no/such");
    producer.exclude_list(excludes);
    producer.init(&sources, &filter,
                  MTF::Ref_Ptr<MTF::Writer_Hardlink_Map>(new MTF::Writer_Hardlink_Map), &volumes,
                  cache.path(), threads, 0);
    producer.msg_queue()->high_water_mark(~std::size_t{0} >> 1);
    result = producer.svc_i();
    if (result == -1) producer.msg_queue()->activate();
    std::vector<std::string> bytes;
    while (!producer.msg_queue()->is_empty()) {
      MTF::Cat_Blk* block = nullptr;
      producer.msg_queue()->dequeue_head(block);
      bytes.emplace_back(block->data(), block->capacity());
      delete block;
    }
    return bytes;
  }

  // The names that the blocks carry, separated as in a path; FEND is `end`.
  std::vector<std::string> names(const std::list<std::string>& sources) {
    std::vector<std::string> out;
    for (std::string bytes : blocks(sources)) {
      const MTF::Cat_Blk block(&bytes[0], static_cast<unsigned int>(bytes.size()), false);
      std::string name = "end";
      MTF::block_name(block, name);
      for (char& c : name) c = c == '\0' ? '\\' : c;
      out.push_back(name);
    }
    return out;
  }

  int threads;
  std::function<bool(const std::string&)> on_accept = dawdle;
  std::list<std::string> excludes;
  std::map<std::string, std::string> volumes;
  Events events;
  int result = 0;
  Temp_Dir cache;
};

class Both_Walks : public testing::TestWithParam<int> {
 protected:
  // The one directory that was skipped, and the stream's end all the same.
  void expect_skipped(const Walk& walk, const std::string& native, const json_spirit::Value& error,
                      const char* message) {
    std::string path;
    ASSERT_TRUE(platform::system_path(native, path));
    EXPECT_EQ(walk.result, 0);
    ASSERT_EQ(walk.events.skipped.size(), 1u);
    EXPECT_EQ(walk.events.skipped[0],
              json_spirit::Value(
                  {{"type", "directory"}, {"name", path}, {"errno", error}, {"message", message}}));
  }

  Walk walk_{GetParam()};
  Temp_Dir dir_;
};

INSTANTIATE_TEST_SUITE_P(Threads, Both_Walks, testing::Values(plain, 2, 4));

TEST(Lister_Walk, QueuesWhatThePlainWalkQueues) {
  const unsigned int seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  for (unsigned int round = 0; round < 8; ++round) {
    Temp_Dir dir;
    const Random_Tree tree(dir.path(), seed + round);
    std::list<std::string> sources{dir.path()};
    if (round % 2 != 0) {
      sources.clear();
      std::mt19937 random(seed + round);
      for (const auto& path : tree.dirs)
        if (random() % 3 == 0) sources.push_back(path);
      for (const auto& path : tree.files)
        if (random() % 4 == 0) sources.push_back(path);
      if (sources.empty()) continue;
    }
    const std::vector<std::string> wanted = Walk(plain).blocks(sources);
    for (int threads = 2; threads <= 8; ++threads) {
      Walk walk(threads);
      EXPECT_EQ(walk.blocks(sources), wanted) << threads << " threads, round " << round;
      EXPECT_EQ(walk.result, 0);
    }
  }
}

TEST(Lister_Walk, VolumesAreReadThroughTheirShadows) {
  Temp_Dir dir;
  for (const char* name : {"x", "y", "snap", "snap/real", "snap/real/s"}) {
    ASSERT_EQ(::mkdir((dir / name).c_str(), 0755), 0);
  }
  write_file(dir / "snap/real/s/of_x", "");
  write_file(dir / "y/of_y", "");
  ASSERT_EQ(::symlink("real", (dir / "snap/link").c_str()), 0);
  auto& roots = platform::Volume_Roots::instance();
  ASSERT_TRUE(roots.set("X:", dir / "x") && roots.set("Y:", dir / "y"));
  const std::vector<std::string> wanted{"X:", "pre_action_data", "s\\", "of_x", "Y:", "of_y",
                                        "end"};
  for (const int threads : {plain, 2}) {
    Walk walk(threads);
    walk.volumes["X:"] = dir / "snap/link";
    EXPECT_EQ(walk.names({"X:", "Y:"}), wanted) << threads;
  }
  roots.clear();
}

TEST_P(Both_Walks, AVanishedDirectoryIsTold) {
  ASSERT_EQ(::mkdir((dir_ / "gone").c_str(), 0755), 0);
  write_file(dir_ / "kept", "");
  // It is there when it is found, and gone when it is opened.
  walk_.on_accept = [this](const std::string& path) {
    if (ends_with(path, "\\gone")) ::rmdir((dir_ / "gone").c_str());
    return true;
  };
  const auto names = walk_.names({dir_.path()});
  EXPECT_EQ(names.back(), "end");
  EXPECT_NE(std::find(names.begin(), names.end(), "kept"), names.end());
  expect_skipped(walk_, dir_ / "gone", ENOENT, "Failed to open directory.");
  EXPECT_EQ(walk_.events.skipped_dirs, 1u);
}

// `sub` is found as a directory and is a link when it, or what was found in it, is opened.
TEST_P(Both_Walks, ALinkThatTookADirectorysPlaceLeadsNowhere) {
  for (const char* found : {"\\sub", "\\sub\\deep"}) {
    Temp_Dir dir;
    for (const char* name : {"real", "real/tree", "real/tree/sub", "real/tree/sub/deep",
                             "real/tree/sub/deep/deeper", "outside", "outside/deep"}) {
      ASSERT_EQ(::mkdir((dir / name).c_str(), 0755), 0);
    }
    write_file(dir / "outside/secret", "");
    write_file(dir / "outside/deep/secret", "");
    // Whoever named the source may have come by a link.
    ASSERT_EQ(::symlink("real", (dir / "way").c_str()), 0);
    Walk walk(GetParam());
    const std::string sub = dir / "way/tree/sub", aside = dir / "aside", outside = dir / "outside";
    walk.on_accept = [&](const std::string& path) {
      if (!ends_with(path, found) || ::rename(sub.c_str(), aside.c_str()) != 0) return true;
      EXPECT_EQ(::symlink(outside.c_str(), sub.c_str()), 0);
      return true;
    };
    const auto names = walk.names({dir / "way/tree"});
    EXPECT_EQ(std::find(names.begin(), names.end(), "secret"), names.end());
    const bool deep = ends_with(found, "deep");
    expect_skipped(walk, deep ? sub + "/deep" : sub, deep ? ELOOP : ENOTDIR,
                   "Failed to open directory.");
    EXPECT_EQ(walk.events.skipped_dirs, 1u);
  }
}

TEST_P(Both_Walks, ExcludedAndFilteredEntriesAreTold) {
  for (const char* name : {"a", "b"}) ASSERT_EQ(::mkdir((dir_ / name).c_str(), 0755), 0);
  write_file(dir_ / "a/x", "");
  write_file(dir_ / "b/y", "");
  walk_.excludes = {dir_ / "a"};
  EXPECT_EQ(walk_.names({dir_.path()}).back(), "end");
  expect_skipped(walk_, dir_ / "a", nullptr, "Excluded by exclude list.");
  Walk filtered(GetParam());
  filtered.on_accept = [](const std::string& path) { return path.back() != 'a'; };
  const auto names = filtered.names({dir_.path()});
  EXPECT_EQ(names[names.size() - 2], "y");
  expect_skipped(filtered, dir_ / "a", nullptr, "Excluded by filter.");
  EXPECT_EQ(filtered.events.skipped_dirs, 0u);
}

TEST_P(Both_Walks, UnsupportedFilesAreTold) {
  ASSERT_EQ(::mkfifo((dir_ / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(walk_.names({dir_.path()}).back(), "end");
  ASSERT_EQ(walk_.events.skipped.size(), 1u);
  EXPECT_EQ(walk_.events.skipped[0]["type"], "file");
  EXPECT_EQ(walk_.events.skipped[0]["message"],
            GetParam() == plain ? "Unsupported file type" : "Unsupported file type(0x1180)");
}

TEST_P(Both_Walks, ADirectoryTooDeepForABlockIsTold) {
  std::string deep = dir_.path();
  while (deep.size() < 32500) deep += "/" + std::string(250, 'd');
  const std::string fits = deep + "/" + std::string(32766 - deep.size(), 'e');
  ASSERT_EQ(platform::make_dirs(fits, 0700), 0);
  ASSERT_EQ(platform::make_dirs(fits + "/x/y", 0700), 0);
  const auto names = walk_.names({dir_.path()});
  ASSERT_GT(names.size(), 2u);
  // The native path without its first slash and with a separator at its end.
  EXPECT_EQ(names[names.size() - 2].size(), MTF::MTF_PATH_MAX);
  expect_skipped(walk_, fits + "/x", ENAMETOOLONG, "Path too long.");
  EXPECT_EQ(walk_.events.skipped_dirs, 1u);
}

TEST_P(Both_Walks, AReaderThatGoesAwayEndsTheWalk) {
  for (int d = 0; d < 20; ++d) {
    const std::string sub = dir_ / std::to_string(d);
    ASSERT_EQ(::mkdir(sub.c_str(), 0755), 0);
    for (int f = 0; f < 5; ++f) write_file(sub + "/" + std::to_string(f), "");
  }
  const std::list<std::string> sources{dir_.path()};
  const Filter filter(dawdle);
  for (int stop = 0; stop < 30; ++stop) {
    MTF::Source_Producer producer(1, false, nullptr, nullptr);
    producer.exclude_list({"/no/such"});
    producer.init(&sources, &filter,
                  MTF::Ref_Ptr<MTF::Writer_Hardlink_Map>(new MTF::Writer_Hardlink_Map), nullptr,
                  walk_.cache.path(), GetParam(), 0);
    producer.msg_queue()->high_water_mark(10 * sizeof(MTF::Cat_Blk));
    ASSERT_EQ(producer.activate(0, 1), 0);
    for (int i = 0; i < stop; ++i) {
      MTF::Cat_Blk* block = nullptr;
      ASSERT_NE(producer.msg_queue()->dequeue_head(block), -1);
      delete block;
    }
    producer.msg_queue()->deactivate();
    producer.wait();
    EXPECT_EQ(producer.last_error(), -1);
  }
}

// The files that this process writes end at a number of bytes.
class File_Limit {
 public:
  explicit File_Limit(rlim_t bytes) {
    ::signal(SIGXFSZ, SIG_IGN);
    ::getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{bytes, before_.rlim_max};
    EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
  }
  ~File_Limit() { ::setrlimit(RLIMIT_FSIZE, &before_); }

 private:
  rlimit before_;
};

TEST(Lister_Walk, DirectoriesWithoutRoomAreTold) {
  Temp_Dir dir;
  constexpr int dirs = 8, files = 600;
  for (int d = 0; d < dirs; ++d) {
    const std::string sub = dir / ("d" + std::to_string(d));
    ASSERT_EQ(::mkdir(sub.c_str(), 0755), 0);
    for (int f = 0; f < files; ++f)
      write_file(sub + "/" + std::string(200, 'n') + std::to_string(f), "");
  }
  Walk walk(2);
  std::vector<std::string> names;
  {
    const File_Limit limit(1 << 20);
    names = walk.names({dir.path()});
  }
  EXPECT_EQ(walk.result, 0);
  EXPECT_EQ(names.back(), "end");
  const auto is_file = [](const std::string& name) { return name.compare(0, 9, "nnnnnnnnn") == 0; };
  const auto whole = std::count_if(names.begin(), names.end(), is_file) / files;
  EXPECT_EQ(std::count_if(names.begin(), names.end(), is_file) % files, 0);
  EXPECT_GT(whole, 0);
  EXPECT_GT(walk.events.skipped.size(), 0u);
  EXPECT_EQ(walk.events.skipped.size() + static_cast<std::size_t>(whole), std::size_t{dirs});
  EXPECT_EQ(walk.events.skipped_dirs, walk.events.skipped.size());
  for (const auto& event : walk.events.skipped) EXPECT_EQ(event["errno"], ENOMEM);
}

TEST(Lister_Walk, FailsWithoutRoomForASource) {
  Temp_Dir dir;
  Walk walk(2);
  const File_Limit limit(1 << 10);
  EXPECT_TRUE(walk.blocks({dir.path()}).empty());
  EXPECT_EQ(walk.result, -1);
}

class Log_Lines : public ACE_Log_Msg_Callback {
 public:
  void log(ACE_Log_Record& record) override {
    const std::lock_guard<std::mutex> guard(lock_);
    lines_ += record.msg_data();
  }
  std::string lines() {
    const std::lock_guard<std::mutex> guard(lock_);
    return lines_;
  }

 private:
  std::mutex lock_;
  std::string lines_;
};

TEST(Lister_Walk, LinesOfWalkersGoToTheJobsLog) {
  Temp_Dir dir;
  ASSERT_EQ(::mkdir((dir / "sub").c_str(), 0755), 0);
  auto log = std::make_shared<Log_Lines>();
  const std::list<std::string> sources{dir.path()};
  MTF::Source_Producer producer(1, false, nullptr, log);
  producer.exclude_list({dir / "sub"});
  producer.init(&sources, nullptr,
                MTF::Ref_Ptr<MTF::Writer_Hardlink_Map>(new MTF::Writer_Hardlink_Map), nullptr,
                dir.path(), 2, 0);
  ASSERT_EQ(producer.activate(0, 1), 0);
  producer.wait();
  std::string excluded;
  ASSERT_TRUE(platform::system_path(dir / "sub", excluded));
  EXPECT_NE(log->lines().find("Exclude path: " + excluded + "\n"), std::string::npos);
  EXPECT_NE(log->lines().find("ends with 1 source entries, 0 dirs, 0 files and 0 entries skipped."),
            std::string::npos);
}

}  // namespace
