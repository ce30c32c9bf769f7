#include "services/mmap.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "services/mmap_pool.h"
#include "tests/support/fault_channel.h"
#include "tests/support/temp_dir.h"

namespace {

TEST(MMap, WhatIsBeyondItIsAFailure) {
  const test_support::Temp_Dir dir;
  MTF::MMap_Pool pool(dir.path());
  for (const unsigned long long size : {~0ULL, 1ULL << 40}) {
    EXPECT_EQ(pool.calloc(size), nullptr);
    EXPECT_EQ(errno, ENOMEM);
  }
  EXPECT_NE(pool.calloc(8), nullptr);
  MTF::MMap map(false);
  ASSERT_TRUE(map.map((dir / "f").c_str(), 1));
  test_support::Memory_Writer writer;
  EXPECT_EQ(map.write(writer, 512, 100ULL << 20), -1);
  EXPECT_EQ(errno, EINVAL);
}

}  // namespace
