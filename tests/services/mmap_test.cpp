#include "services/mmap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <set>

#include "services/mmap_pool.h"
#include "tests/support/fault_channel.h"
#include "tests/support/temp_dir.h"

namespace {

TEST(MMap_Pool, GivesEachItsOwnZeroedPlace) {
  const test_support::Temp_Dir dir;
  MTF::MMap_Pool pool(dir.path());
  std::set<void*> all;
  for (unsigned size = 0; size < 3000; ++size) {
    char* const p = static_cast<char*>(pool.calloc(size));
    ASSERT_NE(p, nullptr);
    ASSERT_EQ(reinterpret_cast<std::uintptr_t>(p) % 8, 0u);
    ASSERT_EQ(std::count(p, p + size, '\0'), size);
    std::fill_n(p, size, 'x');
    ASSERT_TRUE(all.insert(p).second);
  }
}

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
