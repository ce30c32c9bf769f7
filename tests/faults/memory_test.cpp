// Jobs for which memory runs out, at each place where they ask for it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "platform/file.h"
#include "platform/native_path.h"
#include "services/compression.h"
#include "tests/faults/failing_memory.h"
#include "tests/support/media_layout.h"
#include "tests/support/spared.h"
#include "tests/support/test_job.h"

namespace {

using namespace MTF;
using test_support::Test_Job;
using test_support::write_file;

struct How {
  const char* name;
  unsigned channels;
  int threads;
  bool plain;
  unsigned short compression;
  bool incremental;
};

class Short_Memory : public testing::TestWithParam<How> {
 protected:
  Short_Memory() {
    platform::Volume_Roots::instance().set("X:", tree_.path());
    const std::string top = tree_ / "s";
    ::mkdir(top.c_str(), 0700);
    ::mkdir((top + "/d").c_str(), 0700);
    write_file(top + "/a", std::string(70001, 'a'));
    write_file(top + "/d/c", "c");
    ::setxattr((top + "/d/c").c_str(), "user.x", "y", 1, 0);
    ::link((top + "/a").c_str(), (top + "/d/link").c_str());
    ::symlink("a", (top + "/symlink").c_str());
    std::string deep = top + "/e";
    for (int depth = 0; depth < 5; ++depth, deep += '/' + std::string(250, 'f')) {
      ::mkdir(deep.c_str(), 0700);
    }
    write_file(deep.substr(0, deep.rfind('/')) + "/sparse", "s");
    ::truncate((deep.substr(0, deep.rfind('/')) + "/sparse").c_str(), 1 << 20);
    if (!GetParam().incremental) return;
    Test_Job first;
    EXPECT_TRUE(run(first));
    earlier_ = first.storage.pieces;
    write_file(top + "/d/c", "new");
    struct timespec dates[2] = {{1, 0}, {1, 0}};
    ::utimensat(AT_FDCWD, (top + "/d/c").c_str(), dates, 0);
    write_file(top + "/d/n", "");
  }
  ~Short_Memory() override { platform::Volume_Roots::instance().clear(); }

  bool run(Test_Job& job) {
    const unsigned channels = GetParam().channels;
    job.backup.backup_read(!GetParam().plain);
    job.threads = GetParam().threads;
    job.compression = GetParam().compression;
    platform::File pre_action;
    {
      const test_support::Spared spared;
      EXPECT_TRUE(pre_action.open_input(tree_ / "s/a"));
    }
    job.pre_action = reinterpret_cast<void*>(static_cast<std::intptr_t>(pre_action.handle()));
    if (earlier_.empty()) return job.run("X:\\s", channels);
    return job.run_second("X:\\s", earlier_, channels);
  }

  const test_support::Temp_Dir tree_;
  std::map<std::string, std::string> earlier_;
};

// Whether a line or an event tells of something that went wrong.
bool has_told(const Test_Job& job) {
  return job.log->count("128 ") + job.log->count("1024 ") != 0 ||
         !job.events.all(event_skipped).empty() || !job.events.all(event_corrupt).empty();
}

// What a job has made, apart from dates.
std::vector<std::string> made(const Test_Job& job) {
  std::vector<std::string> lines;
  for (const auto& [name, bytes] : job.storage.pieces) {
    lines.push_back(name);
    // A compressor that there is no memory for is no loss.
    if (name.find(".mtf") != std::string::npos && job.compression != compression_none) continue;
    if (name.find(".cat") != std::string::npos) {
      for (const std::string& entry : test_support::catalog_entries(bytes)) lines.push_back(entry);
      continue;
    }
    for (const auto& item : test_support::media_items(bytes)) {
      lines.push_back(item.id + ' ' + std::to_string(item.at) + ' ' + std::to_string(item.length));
    }
  }
  return lines;
}

TEST_P(Short_Memory, FailsTheJobOrDoesNoHarm) {
  std::vector<std::string> expected;
  {
    Test_Job job;
    ASSERT_TRUE(run(job));
    expected = made(job);
    EXPECT_FALSE(has_told(job));
  }
  test_support::at_each_place(
      [&](unsigned long n) {
        Test_Job job;
        test_support::fail_memory(n);
        const bool done = run(job);
        const int error = errno;
        job.backup.clean();
        const bool refused = test_support::memory_failed();
        if (!done) {
          EXPECT_TRUE(has_told(job) || error == ENOMEM);
        } else if (made(job) != expected) {
          // What is missing has been told.
          EXPECT_TRUE(has_told(job)) << "LOG" << job.log->text() << "END";
        }
        job.backup.clean();
        EXPECT_NE(::access((job.cache_dir + "/j").c_str(), F_OK), 0);
        job.backup.remove_storage_file();
        EXPECT_EQ(job.storage.pieces, earlier_);
        return refused;
      },
      MTF_TEST_MEMORY_STRIDE);
}

INSTANTIATE_TEST_SUITE_P(
    Jobs, Short_Memory,
    testing::Values(How{"full", 1, 1, false, 0, false},
                    How{"full_plain_sharded", 2, 1, true, 0, false},
                    How{"full_scanned_packed", 1, 3, true, compression_zstd, false},
                    How{"incremental", 1, 1, true, 0, true},
                    How{"incremental_sharded", 2, 2, false, compression_lz4, true}),
    [](const auto& info) { return info.param.name; });

}  // namespace
