#include "services/checksum.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/support/media_layout.h"

namespace {

std::string noise(std::size_t size) {
  std::mt19937 random(1);
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

// Byte i of the stream goes into bits 8 * (i mod 4) and up.
unsigned naive_stream_checksum(const std::string& data) {
  unsigned sum = 0;
  for (std::size_t i = 0; i < data.size(); ++i) {
    sum ^= static_cast<unsigned>(static_cast<unsigned char>(data[i])) << (8 * (i % 4));
  }
  return sum;
}

TEST(Checksum, OfAHeaderAtEveryAlignmentAndSize) {
  const std::string bytes = noise(160);
  for (std::size_t start = 0; start < 17; ++start) {
    for (std::size_t size = 0; size <= 140; ++size) {
      ASSERT_EQ(MTF::header_checksum(bytes.data() + start, size),
                test_support::naive_checksum(bytes.data() + start, size))
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
      ASSERT_EQ(sum.checksum(), naive_stream_checksum(bytes)) << first << ' ' << second;
    }
  }
  sum.reset();
  EXPECT_EQ(sum.checksum(), 0U);
  sum.calc("\x01\x02\x03\x04\x10", 5, false);
  EXPECT_EQ(sum.checksum(), 0x04030211U);
}

}  // namespace
