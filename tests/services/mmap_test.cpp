#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "services/mmap_pool.h"
#include "tests/support/temp_dir.h"

namespace {

TEST(MMap_Pool, GivesZeroedMemoryThatStays) {
  const test_support::Temp_Dir dir;
  MTF::MMap_Pool pool(dir.path());
  std::vector<unsigned char*> all;
  for (unsigned size = 0; size < 3000; ++size) {
    auto* const p = static_cast<unsigned char*>(pool.calloc(size));
    ASSERT_NE(p, nullptr);
    ASSERT_EQ(reinterpret_cast<std::uintptr_t>(p) % 8, 0u);
    for (unsigned i = 0; i < size; ++i) ASSERT_EQ(p[i], 0);
    std::memset(p, static_cast<int>(size), size);
    all.push_back(p);
  }
  for (unsigned size = 1; size < all.size(); ++size) {
    ASSERT_EQ(all[size][size - 1], static_cast<unsigned char>(size));
    ASSERT_GE(all[size], all[size - 1] + (size - 1));
  }
  EXPECT_EQ(pool.calloc(~0ULL), nullptr);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_NE(pool.calloc(8), nullptr);
}

}  // namespace
