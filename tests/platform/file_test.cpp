#include "platform/file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "tests/support/temp_dir.h"

namespace {

using test_support::Temp_Dir;
using test_support::write_file;

TEST(File, FileNumbersTellFileSystemsApart) {
  struct stat one = {}, two = {};
  one.st_ino = two.st_ino = 4711;
  one.st_dev = 0x801;
  two.st_dev = 0x802;
  _stat64 a, b;
  platform::convert_stat(one, a);
  platform::convert_stat(two, b);
  EXPECT_NE(a.st_ino, b.st_ino);
  one.st_ino = 4712;
  _stat64 c;
  platform::convert_stat(one, c);
  EXPECT_EQ(a.st_ino ^ c.st_ino, 4711ULL ^ 4712ULL);
}

TEST(File, LocalFilesAreNotWrittenThroughALink) {
  Temp_Dir dir;
  write_file(dir / "f", "kept");
  ASSERT_EQ(::symlink("f", (dir / "link").c_str()), 0);
  platform::File file;
  EXPECT_FALSE(file.open_local_write(dir / "link"));
  EXPECT_EQ(errno, ELOOP);
  EXPECT_EQ(test_support::read_file(dir / "f"), "kept");
}

}  // namespace
