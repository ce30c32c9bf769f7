#include "platform/host.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace {

TEST(Host, NamesOfIds) {
  EXPECT_EQ(platform::user_name(0), "root");
  EXPECT_EQ(platform::group_name(0), "root");
  EXPECT_EQ(platform::user_name(0x7FFFFF01), "");
  // An id above 31 bits may come widened with its sign, but 0 with bits above it is nobody's.
  EXPECT_EQ(platform::user_name(0xFFFFFFFFFFFFFFF0ULL), "");
  EXPECT_EQ(platform::user_name(0x100000000ULL), "");
}

TEST(Host, BlockSizeOfAFileSystem) {
  unsigned int size = 0;
  ASSERT_TRUE(platform::filesystem_block_size("/", size));
  EXPECT_NE(size, 0u);
  EXPECT_EQ(size & (size - 1), 0u);
  EXPECT_FALSE(platform::filesystem_block_size("Q:", size));
  EXPECT_EQ(errno, ENODEV);
  EXPECT_FALSE(platform::filesystem_block_size("/\\no such directory", size));
  EXPECT_EQ(errno, ENOENT);
}

}  // namespace
