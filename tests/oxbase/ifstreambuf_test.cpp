#include "oxbase/ifstreambuf.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <ios>

#include "tests/support/temp_dir.h"

namespace {

using oxbase::ACE_ifstreambuf;

TEST(Ifstreambuf, AReadErrorIsNotTheEnd) {
  test_support::Temp_Dir dir;
  char data[64];
  ACE_ifstreambuf in(16);
  EXPECT_EQ(in.open((dir / "missing").c_str(), 0), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(in.open(dir.path().c_str(), 1), -1);
  ASSERT_EQ(in.open(dir.path().c_str(), 0), 0);  // a directory opens, and fails to read
  EXPECT_THROW(in.sgetn(data, 64), std::ios_base::failure);
  EXPECT_THROW(in.sgetn(data, 1), std::ios_base::failure);
}

}  // namespace
