// The program on disks without room, and under a limit on the size of files.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <regex>
#include <set>

#include "tests/support/agent_run.h"
#include "tests/support/small_disk.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;

constexpr const char* no_room = "No space left on device";

class Agent_Disk : public Agent_Run {
 protected:
  // A content for every way through the writer: less and more than it gathers, and large pieces.
  Agent_Disk() {
    for (int i = 0; i < 20; ++i) write_file(source("/f" + std::to_string(i)), std::string(i, 'f'));
    write_file(source("/large"), std::string(3 << 20, 'l'));
    write_file(source("/middle"), std::string(900000, 'm'));
    fs::create_directory(storage());
  }

  // Saves job 1 alone, keeps a copy of its pieces and changes the source.
  void save_first(const Arguments& how) {
    for (const std::string& name : pieces()) fs::remove(storage(name));
    ASSERT_EQ(save(how).code, 0);
    first_.clear();
    for (const std::string& name : pieces()) first_[name] = read_file(storage(name));
    write_file(source("/f1"), "changed and dated");
    fs::last_write_time(source("/f1"), fs::last_write_time(source("/f2")) + std::chrono::hours(1));
    fs::last_write_time(source("/large"), fs::last_write_time(source("/f1")));
  }

  // Nothing is left of the failed job, job 1 is whole, and the last line says what failed.
  void expect_failed(const Output& output, const std::string& last_line) const {
    EXPECT_EQ(output.code, 1) << output.out << output.err;
    const std::vector<std::string> lines = lines_of(output.err);
    const std::string last = lines.empty() ? "" : lines.back();
    EXPECT_TRUE(std::regex_match(last, std::regex(last_line))) << output.err;
    EXPECT_EQ(pieces().size(), first_.size());
    for (const auto& [name, bytes] : first_) EXPECT_TRUE(read_file(storage(name)) == bytes) << name;
    EXPECT_TRUE(!fs::exists(dir_ / "tmp") || fs::is_empty(dir_ / "tmp"));
  }

  std::map<std::string, std::string> first_;
};

struct Case {
  const char* command;
  Arguments how;
};

const Case cases[] = {{"full", {"--channels", "1", "--threads", "1"}},
                      {"incremental", {"--channels", "2", "--threads", "1", "--plain"}},
                      {"full", {"--channels", "2", "--threads", "2", "--compression", "lz4"}}};

// The storage has room for less and less short of the whole second job.
TEST_F(Agent_Disk, AStorageThatFillsUp) {
  const Small_Disk disk(storage(), "size=40m");
  if (!disk.is_there()) GTEST_SKIP() << "needs a mount of its own";
  for (const Case& c : cases) {
    save_first(c.how);
    int failed = 0;
    for (unsigned long long room = 0; room < 8000; room = room == 0 ? 1 : room * 2) {
      SCOPED_TRACE(std::to_string(room) + " blocks free");
      write_file(storage(".filler"), std::string((disk.room().first - room) * 4096, 'x'));
      ASSERT_EQ(disk.room().first, room);
      const Output output = save(c.how, c.command);
      fs::remove(storage(".filler"));
      if (output.code == 0) break;
      ++failed;
      expect_failed(
          output,
          std::string("error: writing failed: demo[.]2[.][0-2][.](mtf|cat)[.]part: ") + no_room);
    }
    EXPECT_GT(failed, 3);
    expect_verified({"--seq", "1"});
    expect_verified({"--seq", "2"});
  }
}

// Every file that a storage must take in turn.
TEST_F(Agent_Disk, AStorageWithoutRoomForAFile) {
  // The directory, the lock and four pieces.
  for (unsigned files = 1; files <= 6; ++files) {
    SCOPED_TRACE(files);
    const Small_Disk disk(storage(), "nr_inodes=" + std::to_string(files));
    if (!disk.is_there()) GTEST_SKIP() << "needs a mount of its own";
    const Output output = save({"--channels", "2"});
    if (files == 6) {
      EXPECT_EQ(output.code, 0) << output.err;
      expect_verified();
    } else {
      expect_failed(output, std::string("error: (storage '.*'|a piece can't be opened: "
                                        "demo[.]1[.][12][.](mtf|cat)[.]part): ") +
                                no_room);
    }
  }
}

// Room for more and more of the working files, and then for more and more files. There are many
// with long names: the working files outgrow their buffers, and the list of the scanning threads
// its first piece.
TEST_F(Agent_Disk, ATemporaryDirectoryThatFillsUp) {
  for (const char* directory : {"/a", "/b", "/b/c"}) {
    fs::create_directory(source(directory));
    for (int i = 0; i < 1200; ++i) {
      write_file(source(directory) + '/' + std::to_string(i) + std::string(200, 'n'), "");
    }
  }
  const Case kinds[] = {{"full", {"--threads", "1", "--plain"}},
                        {"incremental", {"--threads", "1", "--channels", "2", "--plain"}},
                        {"incremental", {"--threads", "2"}},
                        {"full", {"--threads", "3", "--channels", "2", "--plain"}}};
  const std::string path = std::regex_replace(dir_ / "tmp", std::regex("[.]"), "[.]");
  const std::regex reason("error: (Failed to (make|write|extend|read) local file, path=" + path +
                          "|temporary directory '" + path + ").*" + no_room);
  // Only these can be, by where a working file stands in a job: its catalogs are opened, take an
  // entry, and are ended or read back. The list of the scanning threads and the base have no text.
  const std::string no_catalog =
      "error: the catalog can't be opened: Failed to create catalog in cache.";
  const std::string no_own_one =
      "error: the catalog can't be opened: Failed to open media based catalog.";
  const std::string failures = no_catalog + '|' + no_own_one +
                               "|error: (the catalog refused an entry: .*|writing failed.*|the job "
                               "failed|all entries were skipped, nothing was saved|temporary .*)";
  for (const Case& kind : kinds) {
    save_first(kind.how);
    std::multiset<std::string> last_lines;
    for (const bool files : {false, true}) {
      bool done = false;
      for (unsigned room = files ? 1 : 4; !done && room < 12000; room += files ? 1 : 100) {
        const std::string options =
            files ? "nr_inodes=" + std::to_string(room) : "size=" + std::to_string(room) + "k";
        SCOPED_TRACE(kind.command + options);
        const Small_Disk disk(dir_ / "tmp", options);
        if (!disk.is_there()) GTEST_SKIP() << "needs a mount of its own";
        const Output output = save(kind.how, kind.command);
        done = output.code == 0;
        // The reason stands in a line, if not in the last one.
        EXPECT_TRUE(done || std::regex_search(output.err, reason)) << output.err;
        if (output.code != 0 && output.code != 3) {
          expect_failed(output, failures);
          last_lines.insert(lines_of(output.err).back());
          continue;
        }
        // The list of the scanning threads had no room for all, or there was room enough.
        EXPECT_TRUE(done || output.err.find("Failed to walk directory ") != std::string::npos);
        if (done) expect_verified();
        EXPECT_EQ(run(on_storage("remove", {"--seq", "2"})).code, 0);
      }
      EXPECT_TRUE(done) << "no room was enough";
    }
    EXPECT_GT(last_lines.size(), 20U);
    if (kind.how[1] != "1") continue;  // who finds no room first is a race
    EXPECT_NE(last_lines.count(no_catalog), 0U);
    EXPECT_NE(last_lines.count(no_own_one), 0U);
  }
}

// The limit of a shell holds for pieces, working files and output alike, and comes with a signal.
TEST_F(Agent_Disk, ALimitOnTheSizeOfFiles) {
  constexpr rlim_t most_output = 4096;
  for (const Case& c : cases) {
    save_first(c.how);
    int failed = 0;
    for (rlim_t limit = 1; limit < 8 << 20; limit += 1 + limit) {
      SCOPED_TRACE(limit);
      const Output output = run(full(c.how, c.command), {limit});
      if (output.code == 0) break;
      ++failed;
      const bool cut = limit < most_output;
      expect_failed(output, cut ? "(.|\n)*" : "error: .*");
      EXPECT_TRUE(cut || output.err.find("File too large") != std::string::npos) << output.err;
    }
    EXPECT_GT(failed, 15);
    expect_verified({"--seq", "1"});
  }
}

TEST_F(Agent_Disk, ARestoreBeyondTheLimit) {
  save_first({});
  const Output output = run(on_storage("restore", {"--to", dir_ / "to"}), {1 << 20});
  EXPECT_EQ(output.code, 1);
  EXPECT_NE(output.err.find("not restored: " + source("/large") + ": File too large"),
            std::string::npos)
      << output.err;
  EXPECT_EQ(read_file(back("/middle")), read_file(source("/middle")));
  EXPECT_FALSE(fs::exists(back("/large")));
}

}  // namespace
