#include "services/mmap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <set>

#include "services/mmap_pool.h"
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

}  // namespace
