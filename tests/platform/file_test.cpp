#include "platform/file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/attributes.h"
#include "platform/directory.h"
#include "platform/native_path.h"
#include "platform/utf16.h"
#include "tests/support/temp_dir.h"

namespace {

using test_support::Temp_Dir;
using test_support::write_file;

std::string system_form(const std::string& native) {
  std::string out;
  EXPECT_TRUE(platform::system_path(native, out)) << native;
  return out;
}

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

// Far beyond what one call of the system takes.
TEST(File, DeepPathsAreReached) {
  Temp_Dir dir;
  std::string deep = dir.path();
  for (int level = 0; level < 200; ++level) deep += "/" + std::string(250, 'd');
  ASSERT_EQ(platform::make_dirs(deep, 0700), 0);
  EXPECT_EQ(platform::make_dirs(deep, 0700), 0);
  platform::File file;
  ASSERT_TRUE(file.open_local_write(deep + "/leaf"));
  ASSERT_TRUE(file.write_all("deep", 4) && file.close());
  const std::string leaf = system_form(deep + "/leaf");
  ASSERT_TRUE(file.open_read(leaf));
  EXPECT_EQ(file.stat().st_size, 4);
  platform::Directory_Handle handle;
  ASSERT_EQ(handle.open(system_form(deep)), 0);
  std::string name;
  _stat64 stat;
  bool end = true;
  ASSERT_EQ(handle.next(name, stat, end), 0);
  EXPECT_FALSE(end);
  EXPECT_EQ(name, "leaf");
  platform::WIN32_FILE_ATTRIBUTE_DATA data;
  EXPECT_TRUE(GetFileAttributesExW(platform::to_utf16(leaf).c_str(), GetFileExInfoStandard, &data));
  EXPECT_TRUE(platform::remove_tree(dir.path() + "/" + std::string(250, 'd')));
  EXPECT_EQ(::access((dir / std::string(250, 'd')).c_str(), F_OK), -1);
}

}  // namespace
