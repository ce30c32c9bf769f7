#include "platform/attributes.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

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
  const Temp_Dir dir;
  for (const char* name : {"plain", ".hidden", "readonly"}) {
    write_file(dir / name, std::string(0x2000, 'x'));
    // File systems that allocate late count the blocks of written files only now.
    const int fd = ::open((dir / name).c_str(), O_RDONLY);
    ::fsync(fd);
    ::close(fd);
  }
  write_file(dir / "sparse", "");
  ASSERT_EQ(::chmod((dir / "readonly").c_str(), 0444), 0);
  ASSERT_EQ(::truncate((dir / "sparse").c_str(), 0x123456789), 0);
  ASSERT_EQ(::mkdir((dir / ".d").c_str(), 0700), 0);
  ASSERT_EQ(::symlink(".d", (dir / "link").c_str()), 0);
  const std::pair<const char*, unsigned> cases[] = {{"plain", 0x20},    {".hidden", 0x22},
                                                    {"readonly", 0x21}, {"sparse", 0x220},
                                                    {".d", 0x12},       {"link", 0}};
  WIN32_FILE_ATTRIBUTE_DATA data;
  for (const auto& [name, bits] : cases) {
    ASSERT_TRUE(GetFileAttributesExW(wide(dir / name).c_str(), GetFileExInfoStandard, &data));
    EXPECT_EQ(data.dwFileAttributes, bits) << name;
  }
  const timespec times[2] = {{-1, 999999999}, {86399, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, (dir / "sparse").c_str(), times, 0), 0);
  ASSERT_TRUE(GetFileAttributesExW((L"\\\\?\\" + wide(dir / "sparse")).c_str(), 0, &data));
  EXPECT_EQ(data.nFileSizeHigh, 1u);
  EXPECT_EQ(data.nFileSizeLow, 0x23456789u);
  EXPECT_EQ(platform::file_time_seconds(data.ftLastAccessTime), -1);
  EXPECT_EQ(platform::file_time_seconds(data.ftLastWriteTime), 86399);
  // Years that 63 bits of ticks don't hold, on a file system that does.
  std::string file = "/dev/shm/mtf_XXXXXX";
  ::close(::mkstemp(&file[0]));
  for (const long long year : {63382, -63382}) {
    const timespec far[2] = {{}, {year * 31556952, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), far, 0), 0);
    ASSERT_TRUE(GetFileAttributesExW(wide(file).c_str(), 0, &data));
    EXPECT_GT(platform::file_time_seconds(data.ftLastWriteTime) / year, 31556952 / 3) << year;
  }
  ::unlink(file.c_str());
  // 1970 in the ticks of Windows, and a tick before 1601.
  EXPECT_EQ(platform::file_time_seconds({0xD53E8000, 0x019DB1DE}), 0);
  EXPECT_EQ(platform::file_time_seconds({0xFFFFFFFF, 0xFFFFFFFF}), -11644473601);
}

}  // namespace
