#include "agent/full_plan.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "agent/exclude_filter.h"
#include "agent/exit_code.h"
#include "platform/native_path.h"
#include "platform/tree.h"
#include "tests/support/temp_dir.h"

namespace {

using test_support::Temp_Dir;

class Full_Plan : public testing::Test {
 protected:
  Full_Plan() {
    options_.storage = dir_ / "storage";
    options_.stem = "demo";
    options_.tmp = dir_ / "tmp";
    options_.sources = {dir_ / "source"};
    make("source");
  }
  ~Full_Plan() override { platform::Volume_Roots::instance().clear(); }

  void make(const std::string& directory) {
    ASSERT_EQ(platform::make_dirs(dir_ / directory, 0700), 0);
  }

  int plan() {
    plan_ = std::make_unique<agent::Full_Plan>();
    error_.clear();
    storage_ = std::make_unique<agent::Storage>();
    return agent::make_full_plan(options_, *storage_, *plan_, error_);
  }

  bool excludes(const std::string& native) const {
    std::string system;
    EXPECT_TRUE(platform::system_path(native, system));
    return std::find(plan_->excludes.begin(), plan_->excludes.end(), system) !=
           plan_->excludes.end();
  }

  Temp_Dir dir_;
  agent::Full_Options options_;
  std::unique_ptr<agent::Storage> storage_;
  std::unique_ptr<agent::Full_Plan> plan_;
  std::string error_;
};

TEST_F(Full_Plan, ExcludesWhatIsItsOwn) {
  ASSERT_EQ(::symlink(dir_.path().c_str(), (dir_ / "way").c_str()), 0);
  options_.storage = dir_ / "way/storage";
  options_.excludes = {dir_ / "source/./a//b/"};
  ASSERT_EQ(plan(), agent::exit_done) << error_;
  EXPECT_TRUE(excludes("/proc"));
  EXPECT_TRUE(excludes(dir_ / "source/a/b"));
  EXPECT_TRUE(excludes(dir_ / "way/storage"));
  EXPECT_TRUE(excludes(dir_ / "storage")) << "the walk comes by the real path";
  EXPECT_TRUE(excludes(plan_->work_dir.path()));
  EXPECT_EQ(plan_->work_dir.path().compare(0, options_.tmp.size(), options_.tmp), 0);
  EXPECT_FALSE(excludes(dir_ / "tmp")) << "a source may lie beside the working files";
}

TEST_F(Full_Plan, WhatTheUserNamedWinsOverADefault) {
  options_.sources = {"/proc/sys", dir_ / "source"};
  ASSERT_EQ(plan(), agent::exit_done) << error_;
  EXPECT_FALSE(excludes("/proc"));
  EXPECT_TRUE(excludes("/sys"));
}

TEST_F(Full_Plan, RelativePathsCountFromTheWorkingDirectory) {
  char before[4096];
  ASSERT_NE(::getcwd(before, sizeof before), nullptr);
  ASSERT_EQ(::chdir(dir_.path().c_str()), 0);
  options_.storage = "storage";
  options_.tmp = "tmp";
  options_.sources = {"source"};
  options_.excludes = {"source/x"};
  EXPECT_EQ(plan(), agent::exit_done) << error_;
  ASSERT_EQ(::chdir(before), 0);
  EXPECT_EQ(plan_->sources, std::vector<std::string>{dir_ / "source"});
  EXPECT_TRUE(excludes(dir_ / "source/x"));
  EXPECT_TRUE(excludes(dir_ / "storage"));
}

TEST_F(Full_Plan, RefusesSourcesThatCannotBeSaved) {
  ASSERT_EQ(::symlink("/etc", (dir_ / "link").c_str()), 0);
  options_.sources = {dir_ / "link/"};
  EXPECT_EQ(plan(), agent::exit_failed);
  EXPECT_EQ(error_, "the source '" + (dir_ / "link") +
                        "' is a symbolic link to '/etc'; links aren't saved: name what it leads "
                        "to");
  EXPECT_EQ(::access(options_.storage.c_str(), F_OK), -1) << "nothing was touched";
  make("storage/inside");
  options_.sources = {dir_ / "storage/inside"};
  EXPECT_EQ(plan(), agent::exit_usage);
  EXPECT_EQ(error_, "the source '" + (dir_ / "storage/inside") + "' lies in the storage '" +
                        (dir_ / "storage") + "'");
}

TEST_F(Full_Plan, VolumesAndShadows) {
  options_.volumes = {"C:=" + (dir_ / "c")};
  options_.shadows = {"C:=" + (dir_ / "snap=1"), "/=/mnt"};
  options_.sources = {"C:\\data", "/usr"};
  make("c/data");
  make("snap=1/data");
  ASSERT_EQ(plan(), agent::exit_done) << error_;
  std::string native;
  EXPECT_TRUE(platform::native_path("C:\\data", native));
  EXPECT_EQ(native, dir_ / "c/data");
  EXPECT_EQ(plan_->sources, (std::vector<std::string>{"C:\\data", "/usr"}));
  EXPECT_EQ(plan_->shadows.at("C:"), dir_ / "snap=1");
  EXPECT_EQ(plan_->shadows.at("/"), "/mnt");
}

TEST_F(Full_Plan, SequenceNumbersEnd) {
  ASSERT_EQ(plan(), agent::exit_done) << error_;
  EXPECT_EQ(plan_->seq, 0U);
  test_support::write_file(dir_ / "storage/demo.65534.0.mtf", "x");
  ASSERT_EQ(plan(), agent::exit_done) << error_;
  EXPECT_EQ(plan_->seq, 65534U);
  test_support::write_file(dir_ / "storage/demo.65535.0.mtf", "x");
  EXPECT_EQ(plan(), agent::exit_failed);
  EXPECT_EQ(error_, "the sequence numbers of 'demo' are used up: take another name");
}

TEST(Exclude_Filter, MatchesPathsAndNames) {
  const agent::Exclude_Filter filter({"/\\e\\x"}, {"*.o", "/home/*/cache", "a[bc]?"});
  const struct {
    const char* path;
    bool kept;
  } cases[] = {
      {"/\\src\\x.o", false},
      {"/\\src.o\\x", true},
      {"/\\home\\me\\cache", false},
      {"/\\home\\a\\b\\cache\\", false},
      {"/\\home\\cache2", true},
      {"/\\x\\abc", false},
      {"/\\x\\abcd", true},
      {"/\\x\\.o", false},
      {"/", true},
      {"/\\e\\x", false},
      {"/\\e\\x\\y\\", false},
      {"/\\e\\xy", true},
  };
  for (const auto& each : cases) {
    EXPECT_EQ(filter.accept(each.path, false), each.kept) << each.path;
  }
}

}  // namespace
