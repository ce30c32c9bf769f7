#include "platform/mapping.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tests/support/temp_dir.h"

namespace {

using test_support::Temp_Dir;

TEST(Mapping, GrowsInPlace) {
  Temp_Dir dir;
  platform::Mapping mapping;
  ASSERT_TRUE(mapping.create_in(dir.path()));
  EXPECT_EQ(::rmdir(dir.path().c_str()), 0) << "the file has a name";
  ASSERT_TRUE(mapping.grow(1));
  char* const base = mapping.data();
  std::memcpy(base, "first", 5);
  for (unsigned long long size : {3ULL << 20, 40ULL << 20, 41ULL << 20}) {
    ASSERT_TRUE(mapping.grow(size));
    EXPECT_EQ(mapping.data(), base);
    EXPECT_GE(mapping.size(), size);
    EXPECT_EQ(base[mapping.size() - 1], 0);
    base[mapping.size() - 1] = 'x';
  }
  EXPECT_EQ(std::memcmp(base, "first", 5), 0);
  EXPECT_FALSE(mapping.grow(~0ULL));
  EXPECT_EQ(errno, ENOMEM);
}

}  // namespace
