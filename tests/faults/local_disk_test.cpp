// Jobs on a local disk that is full, or on which files can't be made or go away.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "platform/native_path.h"
#include "platform/tree.h"
#include "services/mmap.h"
#include "services/mmap_pool.h"
#include "tests/support/chain.h"
#include "tests/support/media_layout.h"
#include "tests/support/small_disk.h"

namespace {

namespace fs = std::filesystem;
using namespace MTF;
using Texts = std::vector<std::string>;
using test_support::Call;
using test_support::Chain;
using test_support::Hang_Bound;
using test_support::Kind;
using test_support::Op;
using test_support::Small_Disk;
using test_support::Temp_Dir;
using test_support::Test_Job;
using test_support::writer_text;

constexpr const char* no_cache = "Failed to create catalog in cache.";
constexpr const char* no_media_catalog = "Failed to open media based catalog.";
constexpr const char* no_room = "No space left on device";

// How many lines name a local file of the job that failed.
long local_failures(const Test_Job& job) {
  long lines = 0;
  for (const char* verb : {"make", "write", "extend", "read"}) {
    const std::string start = std::string("128 Failed to ") + verb + " local file, path=";
    lines += job.log->count(start + job.cache_dir);
  }
  return lines;
}

// A failed making of a task tells of the earlier catalog.
bool base_failed(const Test_Job& job) {
  for (const auto& text : job.events.texts(event_task_made)) {
    if (text.find("\"result\":false") != text.npos) return true;
  }
  return false;
}

// Many files with long names: the working files outgrow their buffers, and the list of the scanning
// threads its first piece.
class Local_Disk : public testing::TestWithParam<Kind> {
 protected:
  Local_Disk() {
    platform::Volume_Roots::instance().set("X:", tree_.path());
    for (const char* dir : {"/a", "/b", "/b/c"}) {
      fs::create_directory(tree_.path() + dir);
      for (int i = 0; i < 1200; ++i) {
        test_support::write_file(
            tree_.path() + dir + "/" + std::to_string(i) + std::string(200, 'n'), "");
      }
    }
  }
  ~Local_Disk() override { platform::Volume_Roots::instance().clear(); }

  void start();
  bool run(Test_Job& job) const;
  // Runs a job with `size` KiB of room. True if it went well.
  bool run_with(unsigned size);
  void expect_failure(const Test_Job& job);
  void expect_skips(const Test_Job& job) const;

  const Temp_Dir tree_;
  std::map<std::string, std::string> earlier_;
  std::set<std::pair<unsigned, std::string>> failures_;  // codes and texts that came
};

void Local_Disk::start() {
  if (!GetParam().incremental) return;
  Test_Job job;
  ASSERT_TRUE(job.run("X:", GetParam().channels));
  earlier_ = job.storage.pieces;
}

bool Local_Disk::run(Test_Job& job) const {
  job.threads = GetParam().threads;
  if (GetParam().incremental) return job.run_second("X:", earlier_, GetParam().channels);
  return job.run("X:", GetParam().channels);
}

void Local_Disk::expect_failure(const Test_Job& job) {
  const unsigned code = job.backup.err_code();
  const std::string& text = job.backup.err_msg();
  failures_.insert({code, text});
  EXPECT_EQ(job.events.all(event_summary).size(), 0U);
  EXPECT_GE(local_failures(job), 1);
  // Only these can be, by where a working file stands in a job: its catalogs are opened, take an
  // entry, and are ended or read back.
  const std::map<unsigned, Texts> texts{
      {11, {no_cache, no_media_catalog}}, {10, {no_room}}, {9, {writer_text}}, {0, {""}}};
  ASSERT_EQ(texts.count(code), 1U) << code;
  EXPECT_EQ(std::count(texts.at(code).begin(), texts.at(code).end(), text), 1) << code << text;
  // Each channel tells of its own catalog.
  const bool told = !job.events.texts(event_catalog_failed).empty();
  EXPECT_TRUE(text == no_cache ? told : !told || GetParam().channels > 1);
  if (code != 0) {
    EXPECT_EQ(job.log->count("128 Failed to execute backup task, last_error=-1\n"), 1);
    return;
  }
  // Nothing else has no code: the earlier catalog, the list of the scanning threads, and the entry
  // of a file that didn't change.
  const bool expected = GetParam().incremental
                            ? job.events.all(event_task_started).empty() ||
                                  job.log->count("128 Failed to write 'FILE' element\n") == 1
                            : GetParam().threads > 1;
  EXPECT_TRUE(expected || job.log->count("128 Failed to open source liseter") == 1);
}

// What the list of the scanning threads had no room for is named, and the job says so.
void Local_Disk::expect_skips(const Test_Job& job) const {
  EXPECT_EQ(job.backup.err_code(), job.backup.summary().file_count() == 0 ? 13U : 14U);
  EXPECT_EQ(job.events.all(event_summary).size(), 1U);
  EXPECT_GT(GetParam().threads, 1);
  EXPECT_GE(local_failures(job), 1);
  EXPECT_GT(job.events.skipped_dirs, 0U);
  const auto skipped = job.events.all(event_skipped);
  // The listing of an incremental job sends no events.
  EXPECT_EQ(skipped.size(), GetParam().incremental ? 0 : job.events.skipped_dirs.load());
  EXPECT_EQ(job.log->count("128 Failed to walk directory "),
            static_cast<int>(job.events.skipped_dirs));
  for (const auto& document : skipped) {
    EXPECT_EQ(document.at("errno"), ENOMEM);
    EXPECT_EQ(document.at("message"), "Failed to open directory.");
  }
}

bool Local_Disk::run_with(unsigned size) {
  std::ostringstream where;
  where << GetParam() << ", room for " << size << " KiB";
  SCOPED_TRACE(where.str());
  const Hang_Bound bound(where.str());
  Test_Job job;
  fs::create_directory(job.cache_dir);
  const Small_Disk disk(job.cache_dir, "size=" + std::to_string(size) + "k");
  const auto room = disk.room();
  const bool done = run(job);
  const unsigned code = job.backup.err_code();
  const bool whole = done && code == 0;
  if (code == 13 || code == 14) {
    expect_skips(job);
  } else if (!done) {
    expect_failure(job);
  }
  if (done) {
    const auto numbers = test_support::channel_numbers(GetParam().channels);
    const unsigned seq = GetParam().incremental ? 2 : 1;
    EXPECT_EQ(test_support::faults_of(job.storage.pieces, seq, numbers), "");
  }
  job.backup.clean();
  EXPECT_TRUE(fs::is_empty(job.cache_dir));
  EXPECT_EQ(disk.room(), room);
  job.backup.remove_storage_file();
  EXPECT_TRUE(job.storage.pieces == earlier_);
  return whole;
}

TEST_P(Local_Disk, FullAtEveryPoint) {
  const Temp_Dir probe;
  if (!Small_Disk(probe.path(), "size=4k").is_there()) GTEST_SKIP() << "needs a mount of its own";
  start();
  constexpr unsigned step = 100, most = 12000;
  unsigned size = 4;
  while (!run_with(size) && size < most) size += step;
  EXPECT_LT(size, most);
  EXPECT_GE(failures_.size(), 1U);
  if (GetParam().threads > 1) return;  // who finds no room first is a race
  EXPECT_EQ(failures_.count({11, no_media_catalog}), 1U);
  EXPECT_EQ(failures_.count({9, writer_text}), 1U);
  EXPECT_EQ(failures_.count(GetParam().incremental ? std::make_pair(0U, std::string())
                                                   : std::make_pair(10U, std::string(no_room))),
            1U);
}

TEST_P(Local_Disk, WithoutRoomForOneMoreFile) {
  const Temp_Dir probe;
  if (!Small_Disk(probe.path(), "size=4k").is_there()) GTEST_SKIP() << "needs a mount of its own";
  start();
  bool whole = false;
  for (unsigned files = 1; !whole && files < 20; ++files) {
    SCOPED_TRACE(files);
    Test_Job job;
    fs::create_directory(job.cache_dir);
    const Small_Disk disk(job.cache_dir, "nr_inodes=" + std::to_string(files));
    const bool done = run(job);
    whole = done && job.backup.err_code() == 0;
    if (!done && job.backup.err_code() != 13) expect_failure(job);
    job.backup.clean();
    EXPECT_TRUE(fs::is_empty(job.cache_dir));
    job.backup.remove_storage_file();
    EXPECT_TRUE(job.storage.pieces == earlier_);
  }
  EXPECT_TRUE(whole);
  EXPECT_EQ(failures_.count({11, no_cache}), 1U);
}

INSTANTIATE_TEST_SUITE_P(Kinds, Local_Disk,
                         testing::Values(Kind{1, false, false, 1}, Kind{2, true, false, 1},
                                         Kind{1, true, false, 2}, Kind{2, false, false, 3}));

class Working_Files : public Chain {};

TEST_F(Working_Files, ThatCannotBeMade) {
  const struct {
    const char* path;  // in the job's cache directory, where something of another kind stands
    bool directory;
    Kind kind;
    const char* text;
    const char* event;        // that the catalog failed
    bool base_fails = false;  // the earlier catalog can't be had
  } cases[] = {
      {"", false, {1, false}, no_cache, R"({"channel":0,"errno":20,"result":false})"},
      {"", false, {2, false, false, 2}, no_cache, nullptr},
      {"", false, {1, true}, "", nullptr},
      {"/j", false, {1, false}, no_cache, nullptr},
      {"/j/0.cat", true, {1, false}, no_cache, R"({"channel":0,"errno":21,"result":false})"},
      {"/j/2.cat", true, {2, false}, no_cache, R"({"channel":2,"errno":21,"result":false})"},
      {"/j/0.tfdd", true, {1, false}, no_media_catalog, nullptr},
      {"/j/1.tsmp", true, {2, true}, no_media_catalog, nullptr},
      {"/j/0.prev.cat", true, {1, true}, "", nullptr, true},
      {"/j/2.prev.cat", true, {2, true}, "", nullptr, true},
  };
  std::map<unsigned, std::map<std::string, std::string>> bases;
  for (unsigned channels : {1U, 2U}) {
    start({channels});
    bases[channels] = earlier;
  }
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    const Hang_Bound bound(c.path);
    Test_Job job;
    const std::string path = job.cache_dir + c.path;
    earlier = bases[c.kind.channels];
    fs::create_directories(c.directory ? path + "/x" : fs::path(path).parent_path().string());
    if (!c.directory) test_support::write_file(path, "somebody's");
    EXPECT_FALSE(run(job, c.kind));
    EXPECT_EQ(job.backup.err_code(), *c.text == '\0' ? 0U : 11U);
    EXPECT_EQ(job.backup.err_msg(), c.text);
    EXPECT_GE(local_failures(job), 1);
    EXPECT_EQ(base_failed(job), c.base_fails);
    const Texts events = job.events.texts(event_catalog_failed);
    EXPECT_TRUE(c.event == nullptr || events == Texts{c.event});
    EXPECT_EQ(events.empty(), c.text != std::string(no_cache));
    EXPECT_TRUE(job.events.all(event_summary).empty());
    if (*c.path == '\0') {
      EXPECT_EQ(test_support::read_file(path), "somebody's");
      fs::remove(path);
    }
    expect_taken_back(job);
  }
}

// The temporary directory goes away with all in it, at each write of a job of one channel.
TEST_F(Working_Files, ThatGoAway) {
  for (const Kind& kind : {Kind{1, false, false, 1}, Kind{1, true, true, 2}}) {
    start(kind);
    Test_Job whole;
    ASSERT_TRUE(run(whole, kind));
    std::size_t detail = 0;
    for (const auto& item : test_support::media_items(whole.storage.bytes("j.2.0.mtf"))) {
      if (item.id == "TFDD") detail = item.at;
    }
    for (const Call& call : whole.storage.log) {
      if (call.op != Op::write) continue;
      SCOPED_TRACE(call.piece + " at " + std::to_string(call.place));
      const Hang_Bound bound(call.piece + " at " + std::to_string(call.place));
      Test_Job job;
      job.storage.on_call = [&](const Call& now) {
        if (now.op == Op::write && now.at == call.at) platform::remove_tree(job.cache_dir);
      };
      // What is open stays; what is read back by its name is gone.
      const bool catalog = call.piece == "j.2.0.cat";
      EXPECT_EQ(run(job, kind), catalog);
      EXPECT_EQ(job.backup.err_code(), catalog ? 0U : 9U);
      EXPECT_EQ(job.backup.err_msg(), catalog ? "" : writer_text);
      // The scanning threads may come too late to make their list.
      const long late = kind.threads > 1 && !catalog ? local_failures(job) - 1 : 0;
      EXPECT_EQ(local_failures(job), (catalog ? 0 : 1) + std::min(late, 1L));
      EXPECT_EQ(job.events.all(event_piece_write_failed).size(),
                !catalog && call.place >= detail ? 1U : 0U);
      EXPECT_EQ(job.events.all(event_summary).size(), catalog ? 1U : 0U);
      expect_taken_back(job);
    }
  }
}

// What stands in a mapping stays whole and usable when the disk has no room for more.
TEST(Mapped_Files, OnAFullDisk) {
  const Temp_Dir dir;
  const Small_Disk disk(dir.path(), "size=3m");
  if (!disk.is_there()) GTEST_SKIP() << "needs a mount of its own";
  const Test_Job quiet;
  MMap map(false), other(false);
  MMap_Pool pool(dir.path());
  ASSERT_TRUE(map.map((dir / "map").c_str(), 1 << 20));
  *map.at((1 << 20) - 1) = 'x';
  test_support::write_file(dir / "fill", std::string(2 << 20, 'f'));
  ASSERT_EQ(disk.room().first, 0U);
  errno = 0;
  EXPECT_FALSE(map.remap((1 << 20) + 1));
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(map.at(1 << 20), nullptr);
  for (int i = 0; i < 1 << 20; i += 512) *map.at(i) = 'y';
  EXPECT_EQ(*map.at((1 << 20) - 1), 'x');
  EXPECT_FALSE(other.map((dir / "other").c_str(), 1 << 20));
  EXPECT_EQ(other.at(0), nullptr);
  EXPECT_EQ(pool.calloc(1), nullptr);
  EXPECT_EQ(errno, ENOSPC);
  fs::remove(dir / "fill");
  EXPECT_TRUE(map.remap((1 << 20) + 1));
  EXPECT_NE(pool.calloc(1 << 20), nullptr);
  EXPECT_EQ(pool.calloc(1), nullptr);
  EXPECT_TRUE(fs::is_empty(dir.path())) << "none has a name";
}

}  // namespace
