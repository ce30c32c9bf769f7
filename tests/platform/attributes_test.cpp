#include "platform/attributes.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/native_path.h"
#include "platform/utf16.h"
#include "tests/support/temp_dir.h"

namespace {

using test_support::Temp_Dir;
using test_support::write_file;

std::wstring wide(const std::string& native) {
  std::string system;
  EXPECT_TRUE(platform::system_path(native, system));
  return platform::to_utf16(system);
}

TEST(Attributes, BitsOfEachKind) {
  Temp_Dir dir;
  write_file(dir / "plain", std::string(10000, 'x'));
  write_file(dir / ".hidden", std::string(10000, 'x'));
  write_file(dir / "readonly", std::string(10000, 'x'));
  write_file(dir / "sparse", "");
  ASSERT_EQ(::chmod((dir / "readonly").c_str(), 0444), 0);
  ASSERT_EQ(::truncate((dir / "sparse").c_str(), 0x123456789), 0);
  ASSERT_EQ(::mkdir((dir / ".d").c_str(), 0700), 0);
  ASSERT_EQ(::symlink(".d", (dir / "link").c_str()), 0);
  for (const char* name : {"plain", ".hidden", "readonly"}) {
    // File systems that allocate late count the blocks of written files only now.
    const int fd = ::open((dir / name).c_str(), O_RDONLY);
    ::fsync(fd);
    ::close(fd);
  }
  const struct {
    const char* name;
    unsigned bits;
  } cases[] = {{"plain", 0x20},   {".hidden", 0x22}, {"readonly", 0x21},
               {"sparse", 0x220}, {".d", 0x12},      {"link", 0}};
  for (const auto& c : cases) {
    WIN32_FILE_ATTRIBUTE_DATA data;
    ASSERT_TRUE(GetFileAttributesExW(wide(dir / c.name).c_str(), GetFileExInfoStandard, &data));
    EXPECT_EQ(data.dwFileAttributes, c.bits) << c.name;
  }
  WIN32_FILE_ATTRIBUTE_DATA data;
  ASSERT_TRUE(GetFileAttributesExW((L"\\\\?\\" + wide(dir / "sparse")).c_str(), 0, &data));
  EXPECT_EQ(data.nFileSizeHigh, 1u);
  EXPECT_EQ(data.nFileSizeLow, 0x23456789u);
  EXPECT_LT(platform::allocated_size(wide(dir / "sparse").c_str()), 0x10000);
  EXPECT_GE(platform::allocated_size(wide(dir / "plain").c_str()), 10000);
}

TEST(Attributes, TimesAreKeptToTheSecond) {
  Temp_Dir dir;
  write_file(dir / "f", "x");
  for (const long long seconds : {0LL, -1LL, 1700000000LL, 4102444800LL}) {
    const timespec times[2] = {{seconds, 999999999}, {seconds + 86400, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, (dir / "f").c_str(), times, 0), 0);
    WIN32_FILE_ATTRIBUTE_DATA data;
    ASSERT_TRUE(GetFileAttributesExW(wide(dir / "f").c_str(), GetFileExInfoStandard, &data));
    EXPECT_EQ(platform::file_time_seconds(data.ftLastAccessTime), seconds);
    EXPECT_EQ(platform::file_time_seconds(data.ftLastWriteTime), seconds + 86400);
  }
  // 1970 in the ticks of Windows.
  EXPECT_EQ(platform::file_time_seconds({0xD53E8000, 0x019DB1DE}), 0);
  EXPECT_EQ(platform::file_time_seconds({0xD53E7FFF, 0x019DB1DE}), -1);
  // A tick before 1601.
  EXPECT_EQ(platform::file_time_seconds({0xFFFFFFFF, 0xFFFFFFFF}), -11644473601);
}

TEST(Attributes, FailuresHaveTheNumbersOfWindows) {
  Temp_Dir dir;
  WIN32_FILE_ATTRIBUTE_DATA data;
  EXPECT_FALSE(GetFileAttributesExW(wide(dir / "no").c_str(), GetFileExInfoStandard, &data));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(GetLastError(), 2u);
  EXPECT_FALSE(GetFileAttributesExW(L"Q:\\x", GetFileExInfoStandard, &data));
  EXPECT_EQ(GetLastError(), 15u);
  EXPECT_FALSE(GetFileAttributesExW(wide(dir.path()).c_str(), 1, &data));
  EXPECT_EQ(GetLastError(), 87u);
  EXPECT_EQ(platform::allocated_size(wide(dir / "no").c_str()), -1);
  EXPECT_EQ(platform::windows_error(EIO), 1117);
  EXPECT_EQ(platform::windows_error(EAGAIN), 33);
  EXPECT_EQ(platform::windows_error(EACCES), 5);
}

}  // namespace
