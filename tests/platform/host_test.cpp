#include "platform/host.h"

#include <gtest/gtest.h>

namespace {

TEST(Host, NamesOfIds) {
  EXPECT_EQ(platform::user_name(0), "root");
  EXPECT_EQ(platform::group_name(0), "root");
  EXPECT_EQ(platform::user_name(0x7FFFFF01), "");
  // An id above 31 bits may come widened with its sign, but 0 with bits above it is nobody's.
  EXPECT_EQ(platform::user_name(0xFFFFFFFFFFFFFFF0ULL), "");
  EXPECT_EQ(platform::user_name(0x100000000ULL), "");
}

}  // namespace
