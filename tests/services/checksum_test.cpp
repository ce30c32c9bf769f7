#include "services/checksum.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/support/media_bytes.h"

namespace {

std::string noise(std::size_t size) {
  std::mt19937 random(1);
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

TEST(Checksum, OfAHeaderAtEveryAlignmentAndSize) {
  const std::string bytes = noise(160);
  for (std::size_t start = 0; start < 17; ++start) {
    for (std::size_t size = 0; size <= 140; ++size) {
      ASSERT_EQ(MTF::header_checksum(bytes.data() + start, size), test::xor16(bytes, start, size))
          << start << ' ' << size;
    }
  }
}

TEST(Checksum, OfAStreamHoweverItIsCut) {
  const std::string bytes = noise(201);
  MTF::Checksum_Calculator sum;
  for (std::size_t first = 0; first <= 70; ++first) {
    for (std::size_t second = 0; second <= 70; second += 3) {
      sum.reset();
      sum.calc(bytes.data(), first, false);
      sum.calc(bytes.data() + first, second, false);
      sum.calc(bytes.data() + first + second, bytes.size() - first - second, false);
      sum.calc(nullptr, 0, true);
      ASSERT_EQ(sum.checksum(), test::xor32(bytes)) << first << ' ' << second;
    }
  }
}

}  // namespace
