// The bytes of a source list file.
#include "mtf/writer/source_writer.h"

#include <gtest/gtest.h>

#include "tests/support/log_lines.h"
#include "tests/support/media_bytes.h"
#include "tests/support/media_layout.h"
#include "tests/support/temp_dir.h"

namespace {

using test::Bytes;
using test_support::get_le;
using test_support::xor16;
using Texts = std::vector<std::string>;

class Source_List_File : public testing::Test {
 protected:
  static _stat64 stat_of(unsigned mode, long long size = 0) {
    _stat64 stat;
    stat.st_mode = mode;
    stat.st_size = size;
    stat.st_mtime = 1582979696;
    stat.st_ino = 0x1122334455667788;
    return stat;
  }
  bool write(const std::string& path, unsigned mode, long long size = 0) {
    _stat64 stat = stat_of(mode, size);
    return writer.write(path, &stat);
  }
  std::string file() const { return test_support::read_file(path); }
  // The counts of the summary from its offset 6 on.
  std::vector<unsigned long long> counts() const {
    const std::string bytes = file();
    std::vector<unsigned long long> out;
    for (std::size_t at : {6, 14, 30, 38, 46, 54, 62, 70}) out.push_back(get_le(bytes, at, 8));
    return out;
  }

  test_support::Temp_Dir dir;
  const std::string path = dir / "list";
  test_support::Log_Lines log;
  test_support::Capture capture{log};
  MTF::Source_Writer writer{0x12345, '/'};
};

// A header of 64 bytes, and what stands behind it.
std::string block(const std::string& type, long long size, unsigned long long number,
                  const std::string& rest) {
  Bytes out;
  out.le(64 + rest.size(), 2).raw(type).le(type == "FEND" ? 0 : 0x2345, 2).zeros(8).le(size, 8);
  out.zeros(20).le(number & 0xFFFFFFFF, 4).zeros(8).le(number >> 32, 4);
  out.le(type == "FEND" ? 0 : 1, 1).zeros(1);
  return out.le(xor16(out.data, 0, 62), 2).raw(rest).data;
}

TEST_F(Source_List_File, HoldsItsBlocksBackToBack) {
  ASSERT_TRUE(writer.open(path));
  ASSERT_TRUE(write("X:", 0x4000));
  ASSERT_TRUE(write("X:/a/b", 0x4000));
  ASSERT_TRUE(write("X:/a/b/f", 0x8000, 300));
  ASSERT_TRUE(writer.close());
  const std::string none(5, '\0'), date = test::date(2020, 2, 29, 12, 34, 56);
  EXPECT_EQ(
      file().substr(96),
      block("VOLB", 0, 0, Bytes().le(2, 2).le(68, 2).raw("X:").data) +
          block("DIRB", 0, 0, none + Bytes().le(6, 2).le(73, 2).raw("X:/a/b").data) +
          block("FILE", 300, 0x1122334455667788, date + Bytes().le(1, 2).le(73, 2).raw("f").data) +
          block("FEND", 0, 0, ""));
  EXPECT_EQ(counts(), (std::vector<unsigned long long>{300, 300, 1, 1, 1, 0, 1, 1}));
  EXPECT_EQ(get_le(file(), 94, 2), xor16(file(), 0, 94));
  EXPECT_EQ(get_le(file(), 2, 4), 0U);
}

TEST_F(Source_List_File, CountsBySize) {
  ASSERT_TRUE(writer.open(path));
  unsigned long long sum = 0;
  for (long long size : {0LL, 102400LL, 102401LL, 524287999LL, 524288000LL}) {
    ASSERT_TRUE(write("/f", 0x8000, size));
    sum += static_cast<unsigned long long>(size);
  }
  for (unsigned mode : {0xA000U, 0x2000U, 0x3000U}) ASSERT_TRUE(write("/l", mode));
  MTF::Cat_PDat_Blk data;
  ASSERT_TRUE(data.alloc_buffer(100) && data.set(1, "pre", 0, 1000, 0, 0));
  ASSERT_TRUE(writer.write(data));
  ASSERT_TRUE(writer.close());
  EXPECT_EQ(counts(), (std::vector<unsigned long long>{sum + 1000, sum + 1000, 0, 0, 8, 1, 5, 8}));
}

TEST_F(Source_List_File, RefusesWhatIsNone) {
  EXPECT_FALSE(write("/early", 0x8000));
  EXPECT_EQ(log.count("128 Failed to put 78 bytes to catalog\n"), 1);
  MTF::Source_Writer late(1, '/');
  ASSERT_TRUE(late.open(path));
  for (unsigned mode : {0xC000U, 0x1000U, 0U}) {
    _stat64 stat = stat_of(mode);
    EXPECT_FALSE(late.write("/x", &stat));
  }
  EXPECT_EQ(log.count("32 Failed to write_file, invalid mode 0xC000\n"), 1);
  _stat64 stat = stat_of(0x4000);
  EXPECT_FALSE(late.write("/" + std::string(65536, 'd'), &stat));
  ASSERT_TRUE(late.close());
  EXPECT_EQ(file().size(), 96U + 64);
  EXPECT_EQ(counts(), std::vector<unsigned long long>(8, 0));
  EXPECT_FALSE(MTF::Source_Writer(1, '/').open(dir / "no/such"));
}

}  // namespace
