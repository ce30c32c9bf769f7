#include "oxbase/ifstreambuf.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "tests/support/temp_dir.h"

namespace {

using oxbase::ACE_ifstreambuf;

TEST(Ifstreambuf, GivesTheBytesInPiecesOfAnySize) {
  test_support::Temp_Dir dir;
  std::string content;
  for (int i = 0; i < 1000; ++i) content += static_cast<char>(i * 7);
  test_support::write_file(dir / "f", content);
  for (const std::streamsize piece : {1, 5, 16, 17, 999, 5000}) {
    ACE_ifstreambuf in(16);
    ASSERT_EQ(in.open((dir / "f").c_str(), 0), 0);
    std::string got(content.size() + 5000, '?');
    std::size_t size = 0;
    while (const std::streamsize n = in.sgetn(&got[size], piece)) size += static_cast<size_t>(n);
    got.resize(size);
    EXPECT_EQ(got, content) << piece;
  }
}

TEST(Ifstreambuf, AReadErrorIsNotTheEnd) {
  test_support::Temp_Dir dir;
  char data[64];
  ACE_ifstreambuf in(16);
  EXPECT_EQ(in.open((dir / "missing").c_str(), 0), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(in.open(dir.path().c_str(), 1), -1);
  ASSERT_EQ(in.open(dir.path().c_str(), 0), 0);  // a directory opens, and fails to read
  EXPECT_EQ(in.sgetn(data, 64), -1);
  EXPECT_EQ(in.sgetn(data, 1), -1);
  EXPECT_EQ(errno, EISDIR);
}

}  // namespace
