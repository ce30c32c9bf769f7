#include "oxbase/ifstreambuf.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "tests/support/temp_dir.h"

namespace {

using oxbase::ACE_ifstreambuf;

// Out of the buffer, out of the next one too, and past it up to the end.
TEST(Ifstreambuf, GivesTheBytesInPiecesOfAnySize) {
  test_support::Temp_Dir dir;
  const std::string content = "a buffer holds sixteen bytes of these";
  test_support::write_file(dir / "f", content);
  ACE_ifstreambuf in(16);
  ASSERT_EQ(in.open((dir / "f").c_str(), 0), 0);
  std::string got(48, '?');
  EXPECT_EQ(in.sgetn(&got[0], 5), 5);
  EXPECT_EQ(in.sgetn(&got[5], 13), 13);
  EXPECT_EQ(in.sgetn(&got[18], 30), 19);
  EXPECT_EQ(got.substr(0, 37), content);
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
