#include "platform/tree.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "tests/support/temp_dir.h"

namespace {

using test_support::Temp_Dir;
using test_support::write_file;

TEST(Tree, RemovalDoesNotFollowLinks) {
  Temp_Dir dir;
  ASSERT_EQ(platform::make_dirs(dir / "outside/sub", 0700), 0);
  write_file(dir / "outside/sub/kept", "kept");
  ASSERT_EQ(platform::make_dirs(dir / "tree/a/b", 0700), 0);
  write_file(dir / "tree/a/f", "x");
  ASSERT_EQ(::symlink("../../outside", (dir / "tree/a/link").c_str()), 0);
  ASSERT_EQ(::symlink("outside", (dir / "top").c_str()), 0);
  EXPECT_TRUE(platform::remove_tree(dir / "tree/"));
  EXPECT_TRUE(platform::remove_tree(dir / "top/"));
  EXPECT_EQ(::access((dir / "tree").c_str(), F_OK), -1);
  struct stat st;
  EXPECT_EQ(::lstat((dir / "top").c_str(), &st), -1);
  EXPECT_EQ(test_support::read_file(dir / "outside/sub/kept"), "kept");
}

TEST(Tree, RemovalNeedsFewHandlesAtAnyDepth) {
  Temp_Dir dir;
  std::string path = dir / "deep";
  for (int level = 0; level < 300; ++level) path += "/d";
  ASSERT_EQ(platform::make_dirs(path, 0700), 0);
  rlimit old;
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &old), 0);
  rlimit low = old;
  low.rlim_cur = 64;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &low), 0);
  EXPECT_TRUE(platform::remove_tree(dir / "deep"));
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &old), 0);
  EXPECT_EQ(::access((dir / "deep").c_str(), F_OK), -1);
}

TEST(Tree, RemovalOfOddPaths) {
  Temp_Dir dir;
  write_file(dir / "f", "x");
  EXPECT_TRUE(platform::remove_tree(dir / "f"));
  EXPECT_TRUE(platform::remove_tree(dir / "missing"));
  EXPECT_TRUE(platform::remove_tree(dir / "missing/below"));
  for (const std::string& path : {std::string(), std::string("/"), dir / ".", dir / ".."}) {
    EXPECT_FALSE(platform::remove_tree(path));
    EXPECT_EQ(errno, EINVAL);
  }
}

TEST(Tree, DirectoriesAreMadeOnTheWay) {
  const Temp_Dir dir;
  EXPECT_EQ(platform::make_dirs(dir / "a//b/c/", 0700), 0);
  EXPECT_EQ(::access((dir / "a/b/c").c_str(), F_OK), 0);
  write_file(dir / "f", "x");
  EXPECT_EQ(platform::make_dirs(dir / "f", 0700), ENOTDIR);
  EXPECT_EQ(platform::make_dirs(dir / "f/below", 0700), ENOTDIR);
  EXPECT_EQ(platform::make_dirs("", 0700), ENOENT);
  EXPECT_EQ(platform::make_last_dir(dir / "x/y", 0700), ENOENT);
  EXPECT_EQ(::access((dir / "x").c_str(), F_OK), -1);
}

TEST(Tree, PrivateDirectoryIsTheUsersAlone) {
  const Temp_Dir dir;
  struct stat st;
  for (const unsigned int mode : {0700U, 0777U}) {
    EXPECT_TRUE(platform::private_directory(dir / "own/"));
    ASSERT_EQ(::stat((dir / "own").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);
    ASSERT_EQ(::chmod((dir / "own").c_str(), mode), 0);
  }
  ASSERT_EQ(::symlink("own", (dir / "link").c_str()), 0);
  write_file(dir / "f", "x");
  const bool root = ::geteuid() == 0;
  if (root) {
    ASSERT_EQ(::chown((dir / "own").c_str(), 65534, 65534), 0);
  }
  const std::pair<const char*, int> cases[] = {
      {"link", EPERM}, {"link/", EPERM}, {"f", ENOTDIR}, {"own", root ? EPERM : 0}};
  for (const auto& [name, error] : cases) {
    errno = 0;
    EXPECT_EQ(platform::private_directory(dir / name), error == 0) << name;
    EXPECT_EQ(errno, error) << name;
  }
}

}  // namespace
