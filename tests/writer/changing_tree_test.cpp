// A job while the tree under it changes at a chosen moment.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <tuple>

#include "tests/support/filter.h"
#include "tests/support/test_job.h"

namespace {

using test_support::Temp_Dir;
using test_support::Test_Job;
using test_support::write_file;

constexpr const char* secret = "what nobody named as a source";

// Records or plain, threads, channels, incremental.
class Changing_Tree : public testing::TestWithParam<std::tuple<bool, int, unsigned, bool>> {
 protected:
  Changing_Tree() {
    for (const char* name :
         {"real", "real/tree", "real/tree/sub", "real/tree/sub/deep", "outside", "outside/deep"}) {
      EXPECT_EQ(::mkdir((dir_ / name).c_str(), 0755), 0);
    }
    write_file(dir_ / "real/tree/kept", "what stays");
    for (const char* name : {"real/tree/sub/a", "real/tree/sub/deep/b"}) {
      write_file(dir_ / name, std::string(std::strlen(secret), 'x'));
    }
    write_file(dir_ / "outside/a", secret);
    write_file(dir_ / "outside/deep/b", secret);
    EXPECT_EQ(::symlink("real", (dir_ / "way").c_str()), 0);
  }

  std::string tree() const { return dir_ / "way/tree"; }

  // The job that `change` happens to; its pieces are those of `job` from then on.
  bool save(Test_Job& job, const MTF::IFilter& change) {
    const auto [records, threads, channels, incremental] = GetParam();
    job.backup.backup_read(records);
    job.threads = threads;
    job.filter = &change;
    if (!incremental) return job.run(tree(), channels);
    Test_Job base;
    write_file(dir_ / "base", "");
    EXPECT_TRUE(base.run(dir_ / "base", channels));
    return job.run_second(tree(), base.storage.pieces, channels);
  }

  Temp_Dir dir_;
};

INSTANTIATE_TEST_SUITE_P(Kinds, Changing_Tree,
                         testing::Combine(testing::Bool(), testing::Values(1, 2),
                                          testing::Values(1U, 2U), testing::Bool()));

// The walk has found the directory or the file, and a directory above it, or it itself, is a link
// when it is opened.
TEST_P(Changing_Tree, NothingFromOutsideIsSaved) {
  for (const char* found : {"\\sub", "\\sub\\deep", "\\sub\\a", "\\deep\\b"}) {
    SCOPED_TRACE(found);
    const std::string sub = tree() + "/sub", aside = dir_ / "aside";
    // The first time that the walk comes by.
    std::atomic<bool> changed{false};
    const test_support::Filter change([&](const std::string& path, bool) {
      if (!test_support::ends_with(path, found) || changed.exchange(true)) return true;
      EXPECT_EQ(::rename(sub.c_str(), aside.c_str()), 0);
      EXPECT_EQ(::symlink((dir_ / "outside").c_str(), sub.c_str()), 0);
      return true;
    });
    Test_Job job;
    EXPECT_TRUE(save(job, change));
    EXPECT_EQ(job.backup.err_code(), 14U);
    std::string all;
    for (const auto& piece : job.storage.pieces) all += piece.second;
    EXPECT_EQ(all.find(secret), std::string::npos);
    EXPECT_NE(all.find("what stays"), std::string::npos);
    std::string told;
    for (const auto& text : job.events.texts(MTF::event_skipped)) told += text;
    // What the walk of an incremental job misses has a line alone.
    if (told.empty() && std::get<3>(GetParam())) told = job.log->text();
    EXPECT_NE(told.find("sub"), std::string::npos) << told;
    ASSERT_EQ(::unlink(sub.c_str()), 0);
    ASSERT_EQ(::rename(aside.c_str(), sub.c_str()), 0);
  }
}

}  // namespace
