#include "services/mmap.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <vector>

#include "services/mmap_pool.h"
#include "tests/support/mapped_memory.h"
#include "tests/support/temp_dir.h"

namespace {

using test_support::Temp_Dir;

class Piece_Writer : public MTF::IWriter {
 public:
  unsigned long long write(const char* data, unsigned long long size) override {
    if (pieces.size() == fail_at) return size - 1;
    pieces.push_back(size);
    bytes.append(data, size);
    return size;
  }
  bool flush() override { return true; }
  unsigned long long write_filemark(unsigned long long) override { return 0; }
  unsigned long long size() override { return bytes.size(); }
  std::string err_msg() override { return {}; }

  std::vector<unsigned long long> pieces;
  std::string bytes;
  std::size_t fail_at = ~std::size_t{0};
};

TEST(MMap, StaysInPlaceAndHasNoName) {
  Temp_Dir dir;
  MTF::MMap map(false);
  EXPECT_EQ(map.at(0), nullptr);
  ASSERT_TRUE(map.map((dir / "f").c_str(), 0x100000));
  EXPECT_EQ(::access((dir / "f").c_str(), F_OK), -1);
  char* const first = map.at(0);
  ASSERT_NE(map.at(0xFFFFF), nullptr);
  EXPECT_EQ(map.at(0x100000), nullptr);
  *map.at(0xFFFFF) = 'x';
  ASSERT_TRUE(map.remap(0x100001));
  EXPECT_EQ(map.at(0), first);
  EXPECT_EQ(*map.at(0xFFFFF), 'x');
  EXPECT_EQ(*map.at(0x100000), 0);
}

TEST(MMap, IsWrittenInPiecesOfWholeBlocks) {
  Temp_Dir dir;
  MTF::MMap map(false);
  ASSERT_TRUE(map.map((dir / "f").c_str(), 3 << 20));
  std::string content;
  for (unsigned i = 0; i < (3U << 20); ++i) content += static_cast<char>(i >> 8 ^ i);
  std::memcpy(map.at(0), content.data(), content.size());
  Piece_Writer writer;
  const unsigned long long block = 300000, length = 2500000;
  EXPECT_EQ(map.write(writer, block, length), 2500000);
  EXPECT_EQ(writer.pieces, (std::vector<unsigned long long>{900000, 900000, 700000}));
  EXPECT_EQ(writer.bytes, content.substr(0, length));
  Piece_Writer failing;
  failing.fail_at = 1;
  EXPECT_EQ(map.write(failing, block, length), -1);
  EXPECT_EQ(map.write(writer, block, 100ULL << 20), -1);
  EXPECT_EQ(map.write(writer, block, 0), 0);
}

TEST(MMap_Pool, GivesZeroedMemoryThatStays) {
  Temp_Dir dir;
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
  EXPECT_EQ(::rmdir(dir.path().c_str()), 0) << "the file has a name";
  EXPECT_EQ(pool.calloc(~0ULL), nullptr);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_NE(pool.calloc(8), nullptr);
}

TEST(MMap_Pool, LeavesToTheFileWhatItHandedOut) {
  Temp_Dir dir;
  MTF::MMap_Pool pool(dir.path());
  constexpr unsigned long long piece = 1 << 16;
  const unsigned long long before = test_support::mapped_memory();
  unsigned long long most = 0;
  std::vector<char*> all;
  for (unsigned long long used = 0; used < 6 * MTF::MMap_Pool::unload_step; used += piece) {
    all.push_back(static_cast<char*>(pool.calloc(piece)));
    ASSERT_NE(all.back(), nullptr);
    std::memset(all.back(), static_cast<int>(all.size()), piece);
    most = std::max(most, test_support::mapped_memory() - before);
  }
  EXPECT_LT(most, 2 * MTF::MMap_Pool::unload_step);
  const auto expect_content = [&] {
    for (std::size_t i = 0; i < all.size(); ++i) {
      ASSERT_EQ(all[i][0], static_cast<char>(i + 1));
      ASSERT_EQ(std::memcmp(all[i], all[i] + 1, piece - 1), 0);
    }
  };
  expect_content();
  EXPECT_GT(test_support::mapped_memory() - before, 5 * MTF::MMap_Pool::unload_step);
  pool.unload();
  EXPECT_LT(test_support::mapped_memory() - before, MTF::MMap_Pool::unload_step);
  expect_content();
}

TEST(MMap_Pool, ADirectoryThatIsMissingIsAnError) {
  Temp_Dir dir;
  MTF::MMap_Pool pool(dir / "missing");
  EXPECT_EQ(pool.calloc(8), nullptr);
  EXPECT_EQ(errno, ENOENT);
}

}  // namespace
