#include "agent/work_directory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <thread>

#include "tests/support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using agent::Work_Directory;
using test_support::write_file;

class Work_Directories : public testing::Test {
 protected:
  // Opens one for a moment; what went wrong, if anything did.
  std::string open(bool closed = false) {
    Work_Directory job;
    std::string error;
    const bool opened = job.open(root_, closed, "1-2@job", error);
    EXPECT_EQ(opened, error.empty());
    cleared_ = job.cleared();
    return error;
  }

  test_support::Temp_Dir dir_;
  const std::string root_ = dir_ / "root";
  std::vector<std::string> cleared_;
};

TEST_F(Work_Directories, OfADeadJobGoesAndOfALivingOneStays) {
  std::string error;
  Work_Directory living;
  ASSERT_TRUE(living.open(root_, false, "1-2@living", error)) << error;
  for (const char* name :
       {"mtf-agent@1-2@dead/demo", "mtf-agent@3-4@other", "mtf-agent", "1-2@x", "library"}) {
    fs::create_directories(root_ + '/' + name);
  }
  write_file(root_ + "/mtf-agent@1-2@dead/demo/0.cat", "x");
  write_file(root_ + "/mtf-agent@file", "x");
  fs::create_symlink("library", root_ + "/mtf-agent@link");
  std::size_t stay = 6;
  if (::geteuid() == 0) {
    fs::create_directory(root_ + "/mtf-agent@foreign");
    ASSERT_EQ(::chown((root_ + "/mtf-agent@foreign").c_str(), 65534, 65534), 0);
    ++stay;
  }
  EXPECT_EQ(open(), "");
  std::sort(cleared_.begin(), cleared_.end());
  EXPECT_EQ(cleared_, (std::vector<std::string>{root_ + "/mtf-agent@1-2@dead",
                                                root_ + "/mtf-agent@3-4@other"}));
  for (const std::string& path : cleared_) EXPECT_FALSE(fs::exists(path));
  EXPECT_EQ(std::distance(fs::directory_iterator(root_), {}), stay);
}

// Whoever comes in between makes, removes and looks at the same directory all the time.
TEST_F(Work_Directories, NoJobLosesItsDirectoryToAnother) {
  const auto jobs = [&](const std::string& id) {
    for (int i = 0; i < 300; ++i) {
      Work_Directory job;
      std::string error;
      ASSERT_TRUE(job.open(dir_.path(), false, id, error)) << error;
      write_file(job.path() + "/file", id);
      ASSERT_EQ(test_support::read_file(job.path() + "/file"), id);
    }
  };
  std::thread one([&] { jobs("1@a"); }), two([&] { jobs("1@a"); }), three([&] { jobs("2@b"); });
  one.join();
  two.join();
  three.join();
  EXPECT_TRUE(fs::is_empty(dir_.path()));
}

TEST_F(Work_Directories, AreRefusedWhereOthersMightReachThem) {
  const std::string start = "temporary directory '" + root_ + "': ";
  const auto set_mode = [&](unsigned int mode) { fs::permissions(root_, fs::perms(mode)); };
  fs::create_directory(root_);
  set_mode(0777);
  EXPECT_EQ(open(), start + "every user may change what is in it");
  set_mode(01777);
  EXPECT_EQ(open(), "");
  set_mode(0777);
  EXPECT_EQ(open(true), "");
  EXPECT_EQ(fs::status(root_).permissions(), fs::perms(0700));
  fs::rename(root_, dir_ / "real");
  for (const char* target : {"real", "nowhere"}) {
    fs::create_symlink(target, root_);
    for (const bool closed : {false, true}) {
      EXPECT_EQ(open(closed), start + "it is a symbolic link: name the directory itself");
    }
    fs::remove(root_);
  }
  write_file(root_, "x");
  EXPECT_EQ(open(), start + "Not a directory");
  fs::remove(root_);
  if (::geteuid() != 0) return;
  fs::create_directory(root_);
  ASSERT_EQ(::chown(root_.c_str(), 65534, 65534), 0);
  for (const bool closed : {false, true}) {
    EXPECT_EQ(open(closed), start + "it belongs to another user");
  }
}

}  // namespace
