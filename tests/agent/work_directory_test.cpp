#include "agent/work_directory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "tests/support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using agent::Work_Directory;
using test_support::Temp_Dir;
using test_support::write_file;
using Names = std::vector<std::string>;

TEST(Work_Directory, GoesWithItsJob) {
  const Temp_Dir dir;
  std::string error;
  {
    Work_Directory job;
    ASSERT_TRUE(job.open(dir / "root", false, "1-2@demo", error)) << error;
    EXPECT_EQ(job.path(), dir / "root/mtf-agent@1-2@demo");
    write_file(job.path() + "/file", "x");
  }
  EXPECT_TRUE(fs::is_empty(dir / "root"));
}

TEST(Work_Directory, OfADeadJobGoesAndOfALivingOneStays) {
  const Temp_Dir dir;
  const std::string root = dir / "root";
  std::string error;
  Work_Directory living;
  ASSERT_TRUE(living.open(root, false, "1-2@living", error)) << error;
  for (const char* name :
       {"mtf-agent@1-2@dead/demo", "mtf-agent@3-4@other", "mtf-agent", "1-2@x", "library"}) {
    fs::create_directories(root + '/' + name);
  }
  write_file(root + "/mtf-agent@1-2@dead/demo/0.cat", "x");
  write_file(root + "/mtf-agent@file", "x");
  ASSERT_EQ(::symlink("library", (root + "/mtf-agent@link").c_str()), 0);
  if (::geteuid() == 0) {
    fs::create_directory(root + "/mtf-agent@foreign");
    ASSERT_EQ(::chown((root + "/mtf-agent@foreign").c_str(), 65534, 65534), 0);
  }
  Work_Directory job;
  ASSERT_TRUE(job.open(root, false, "1-2@job", error)) << error;
  Names cleared = job.cleared();
  std::sort(cleared.begin(), cleared.end());
  EXPECT_EQ(cleared, (Names{root + "/mtf-agent@1-2@dead", root + "/mtf-agent@3-4@other"}));
  for (const std::string& path : cleared) EXPECT_FALSE(fs::exists(path));
  for (const char* name : {"mtf-agent@1-2@living", "mtf-agent@1-2@job", "mtf-agent", "1-2@x",
                           "library", "mtf-agent@file", "mtf-agent@link"}) {
    EXPECT_TRUE(fs::exists(root + '/' + name)) << name;
  }
  EXPECT_EQ(fs::exists(root + "/mtf-agent@foreign"), ::geteuid() == 0);
}

// Whoever comes in between makes, removes and looks at the same directory all the time.
TEST(Work_Directory, NoJobLosesItsDirectoryToAnother) {
  const Temp_Dir dir;
  const auto jobs = [&](const std::string& id) {
    for (int i = 0; i < 300; ++i) {
      Work_Directory job;
      std::string error;
      ASSERT_TRUE(job.open(dir.path(), false, id, error)) << error;
      const std::string file = job.path() + "/file";
      write_file(file, id);
      ASSERT_EQ(test_support::read_file(file), id);
    }
  };
  std::thread one([&] { jobs("1@a"); }), two([&] { jobs("1@a"); }), three([&] { jobs("2@b"); });
  one.join();
  two.join();
  three.join();
  EXPECT_TRUE(fs::is_empty(dir.path()));
}

TEST(Work_Directory, IsRefusedWhereOthersMightReachIt) {
  const Temp_Dir dir;
  const std::string root = dir / "root", start = "temporary directory '" + root + "': ";
  fs::create_directory(root);
  std::string error;
  const auto opens = [&](bool closed) {
    Work_Directory job;
    return job.open(root, closed, "1@a", error);
  };
  ASSERT_EQ(::chmod(root.c_str(), 0777), 0);
  EXPECT_FALSE(opens(false));
  EXPECT_EQ(error, start + "every user may change what is in it");
  ASSERT_EQ(::chmod(root.c_str(), 01777), 0);
  EXPECT_TRUE(opens(false)) << error;
  ASSERT_EQ(::chmod(root.c_str(), 0777), 0);
  EXPECT_TRUE(opens(true)) << error;
  struct stat st;
  ASSERT_EQ(::stat(root.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0700U);
  fs::rename(root, dir / "real");
  for (const char* target : {"real", "nowhere"}) {
    ASSERT_EQ(::symlink(target, root.c_str()), 0);
    for (const bool closed : {false, true}) {
      EXPECT_FALSE(opens(closed));
      EXPECT_EQ(error, start + "it is a symbolic link: name the directory itself");
    }
    fs::remove(root);
  }
  write_file(root, "x");
  EXPECT_FALSE(opens(false));
  EXPECT_EQ(error, start + "Not a directory");
  fs::remove(root);
  if (::geteuid() != 0) return;
  fs::create_directory(root);
  ASSERT_EQ(::chown(root.c_str(), 65534, 65534), 0);
  for (const bool closed : {false, true}) {
    EXPECT_FALSE(opens(closed));
    EXPECT_EQ(error, start + "it belongs to another user");
  }
}

}  // namespace
