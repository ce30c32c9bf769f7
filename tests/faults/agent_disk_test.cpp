// The program on disks without room, and under a limit on the size of files.
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>

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

  // Saves job 1 and keeps a copy of its pieces.
  void save_first(const Arguments& how) {
    ASSERT_EQ(save(how).code, 0);
    first_ = pieces();
    fs::copy(storage(), dir_ / "copy");
    write_file(source("/f1"), "changed and dated");
    fs::last_write_time(source("/f1"), fs::last_write_time(source("/f2")) + std::chrono::hours(1));
    fs::last_write_time(source("/large"), fs::last_write_time(source("/f1")));
  }

  Output save_next(bool incremental, const Arguments& how, const Limits& limits = {}) const {
    Arguments arguments = full(how);
    if (incremental) arguments[1] = "incremental";
    return run(arguments, limits);
  }

  // Nothing is left of the failed job, job 1 is whole, and the last line, if any is asked for,
  // says what failed.
  void expect_failed(const Output& output, const std::string& last_line) const {
    EXPECT_EQ(output.code, 1) << output.out << output.err;
    const std::vector<std::string> lines = lines_of(output.err);
    const std::string last = lines.empty() ? "" : lines.back();
    EXPECT_TRUE(last_line.empty() || std::regex_match(last, std::regex(last_line))) << output.err;
    expect_first_is_whole();
    EXPECT_EQ(pieces(), first_);
    EXPECT_TRUE(!fs::exists(dir_ / "tmp") || fs::is_empty(dir_ / "tmp"));
  }
  void expect_first_is_whole() const {
    for (const std::string& name : first_) {
      EXPECT_TRUE(read_file(storage(name)) == read_file(dir_ / ("copy/" + name))) << name;
    }
  }
  void expect_verified() const {
    const Output verified = run(on_storage("verify", {"--seq", "1"}));
    EXPECT_EQ(verified.code, 0) << verified.out << verified.err;
  }

  Arguments first_;
};

struct Case {
  bool incremental;
  Arguments how;
};

const Case cases[] = {{false, {"--channels", "1", "--threads", "1"}},
                      {true, {"--channels", "2", "--threads", "1", "--plain"}},
                      {false, {"--channels", "2", "--threads", "2", "--compression", "lz4"}}};

// The storage has room for less and less short of the whole second job.
TEST_F(Agent_Disk, AStorageThatFillsUp) {
  const Small_Disk disk(storage(), "size=40m");
  if (!disk.is_there()) GTEST_SKIP() << "needs a mount of its own";
  for (const Case& c : cases) {
    fs::remove_all(dir_ / "copy");
    for (const std::string& name : pieces()) fs::remove(storage(name));
    save_first(c.how);
    const std::string filler = storage(".filler");
    int failed = 0;
    for (unsigned long long room = 0; room < 8000; room = room == 0 ? 1 : room * 2) {
      SCOPED_TRACE(std::to_string(room) + " blocks free");
      write_file(filler, std::string((disk.room().first - room) * 4096, 'x'));
      ASSERT_EQ(disk.room().first, room);
      const Output output = save_next(c.incremental, c.how);
      fs::remove(filler);
      if (output.code == 0) break;
      ++failed;
      expect_failed(
          output,
          std::string("error: writing failed: demo[.]2[.][0-2][.](mtf|cat)[.]part: ") + no_room);
    }
    EXPECT_GT(failed, 3);
    expect_first_is_whole();
    expect_verified();
    EXPECT_EQ(run(on_storage("verify", {"--seq", "2"})).code, 0);
  }
}

// Every file that a storage must take in turn.
TEST_F(Agent_Disk, AStorageWithoutRoomForAFile) {
  bool done = false;
  for (unsigned files = 1; !done && files < 20; ++files) {
    SCOPED_TRACE(files);
    const Small_Disk disk(storage(), "nr_inodes=" + std::to_string(files));
    if (!disk.is_there()) GTEST_SKIP() << "needs a mount of its own";
    const Output output = save({"--channels", "2"});
    done = output.code == 0;
    if (done) {
      EXPECT_EQ(files, 6U);  // the directory, the lock and four pieces
      expect_verified();
    } else {
      expect_failed(output, std::string("error: (storage '.*'|a piece can't be opened: "
                                        "demo[.]1[.][12][.](mtf|cat)[.]part): ") +
                                no_room);
    }
  }
  EXPECT_TRUE(done);
}

// The reason stands in a line, if not in the last one.
void expect_local_reason(const Output& output, const std::string& directory) {
  const std::string path = std::regex_replace(directory, std::regex("[.]"), "[.]");
  EXPECT_TRUE(std::regex_search(
      output.err, std::regex("error: (Failed to (make|write|extend|read) local file, path=" + path +
                             "|temporary directory '" + path + ").*" + no_room)))
      << output.err;
}

TEST_F(Agent_Disk, ATemporaryDirectoryThatFillsUp) {
  for (const Case& c : cases) {
    fs::remove_all(dir_ / "copy");
    for (const std::string& name : pieces()) fs::remove(storage(name));
    save_first(c.how);
    int failed = 0;
    for (const bool files : {false, true}) {
      for (unsigned room = 1; room < 2000; room += files ? 1 : 1 + room / 3) {
        const std::string options =
            files ? "nr_inodes=" + std::to_string(room) : "size=" + std::to_string(room * 4) + "k";
        SCOPED_TRACE(options);
        const Small_Disk disk(dir_ / "tmp", options);
        if (!disk.is_there()) GTEST_SKIP() << "needs a mount of its own";
        const Output output = save_next(c.incremental, c.how);
        if (output.code == 0) break;
        ++failed;
        if (output.code == 1) expect_failed(output, "error: .*");
        expect_local_reason(output, dir_ / "tmp");
        if (output.code == 3) {
          // The list of the scanning threads had no room for all.
          EXPECT_NE(output.err.find("skipped: "), std::string::npos) << output.err;
          EXPECT_EQ(run(on_storage("remove", {"--seq", "2"})).code, 0);
        }
      }
      if (fs::exists(storage("demo.2." + std::string(c.how[1] == "1" ? "0" : "1") + ".mtf"))) {
        EXPECT_EQ(run(on_storage("remove", {"--seq", "2"})).code, 0);
      } else {
        ADD_FAILURE() << "no room was enough";
      }
    }
    EXPECT_GT(failed, 5);
    expect_verified();
  }
}

// The limit of a shell holds for pieces, working files and output alike, and comes with a signal.
TEST_F(Agent_Disk, ALimitOnTheSizeOfFiles) {
  constexpr rlim_t most_output = 4096;
  for (const Case& c : cases) {
    fs::remove_all(dir_ / "copy");
    for (const std::string& name : pieces()) fs::remove(storage(name));
    save_first(c.how);
    int failed = 0;
    Limits limits;
    for (limits.file_size = 1; limits.file_size < 8 << 20;
         limits.file_size += 1 + limits.file_size) {
      SCOPED_TRACE(limits.file_size);
      const Output output = save_next(c.incremental, c.how, limits);
      if (output.code == 0) break;
      ++failed;
      const bool cut = limits.file_size < most_output;
      expect_failed(output, cut ? "" : "error: .*");
      EXPECT_TRUE(cut || output.err.find("File too large") != std::string::npos) << output.err;
    }
    EXPECT_GT(failed, 15);
    expect_verified();
  }
}

TEST_F(Agent_Disk, ARestoreBeyondTheLimit) {
  save_first({});
  Limits limits;
  limits.file_size = 1 << 20;
  const Output output = run(on_storage("restore", {"--to", dir_ / "to"}), limits);
  EXPECT_EQ(output.code, 1);
  EXPECT_NE(output.err.find("not restored: " + source("/large") + ": File too large"),
            std::string::npos)
      << output.err;
  EXPECT_EQ(read_file((dir_ / "to") + source("/middle")), read_file(source("/middle")));
  EXPECT_FALSE(fs::exists((dir_ / "to") + source("/large")));
}

}  // namespace
