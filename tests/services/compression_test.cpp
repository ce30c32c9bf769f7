#include "services/compression.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>

namespace {

using namespace MTF;

TEST(Compression, EveryMethodAndLevelComesBack) {
  std::mt19937 random(1);
  for (unsigned short method : {compression_lz4, compression_zstd}) {
    for (int level : {-100000, 0, 1, 3, 9, 100000}) {
      const std::unique_ptr<Compressor> compressor(Compression_Factory::create(method, level));
      ASSERT_NE(compressor, nullptr);
      EXPECT_EQ(compressor->method(), method);
      // No frame may lean on the one before.
      for (unsigned size : {1U, 0xFFFFU, 0x10000U, 0x10000U}) {
        Buffer in(8), out(8);
        ASSERT_TRUE(in.expand(size));
        for (unsigned i = 0; i < size; ++i) in.data()[i] = static_cast<char>(random() % 4);
        in.size(size);
        ASSERT_GT(compressor->compress(in, out), 0);
        std::string back(size, '?');
        ASSERT_TRUE(decompress(method, out.data(), out.size(), &back[0], size));
        ASSERT_EQ(back, std::string(in.data(), size));
        EXPECT_FALSE(decompress(method, out.data(), out.size(), &back[0], size - 1));
        EXPECT_FALSE(decompress(method, out.data(), out.size() - 1, &back[0], size));
      }
    }
  }
  for (unsigned short method : {0, 3, 0xFFFF}) {
    EXPECT_EQ(Compression_Factory::create(method, 1), nullptr) << method;
    char byte;
    EXPECT_FALSE(decompress(method, "a", 1, &byte, 1)) << method;
  }
}

}  // namespace
