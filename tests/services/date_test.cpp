#include "services/date.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

TEST(Date, BytesWrittenDown) {
  const struct {
    long long time;
    unsigned char bytes[5];
  } cases[] = {
      // 14 bits year, 4 month, 5 day, 5 hour, 6 minute, 6 second, most significant bit first
      {0, {0x1E, 0xC8, 0x42, 0x00, 0x00}},           // 1970-01-01 00:00:00
      {951827696, {0x1F, 0x40, 0xBA, 0xC8, 0xB8}},   // 2000-02-29 12:34:56
      {-1, {0x1E, 0xC7, 0x3F, 0x7E, 0xFB}},          // 1969-12-31 23:59:59
      {4294967296, {0x20, 0xE8, 0x8E, 0x67, 0x10}},  // 2106-02-07 06:28:16
  };
  for (const auto& c : cases) {
    unsigned char bytes[5];
    MTF::time_to_mtf_date_time(c.time, bytes);
    EXPECT_EQ(std::memcmp(bytes, c.bytes, 5), 0) << c.time;
    EXPECT_EQ(MTF::mtf_date_time_to_time(c.bytes), c.time);
  }
}

TEST(Date, WhatIsNoDate) {
  const unsigned char none[5] = {};
  for (long long time : {-62135596801LL, 1LL << 39, (1LL << 62), -(1LL << 62)}) {
    unsigned char bytes[5] = {1, 2, 3, 4, 5};
    MTF::time_to_mtf_date_time(time, bytes);
    EXPECT_EQ(std::memcmp(bytes, none, 5), 0) << time;
  }
  const unsigned char bad[][5] = {{}, {0x1F, 0x40, 0x02}, {0x1F, 0x43, 0x42}, {0x1F, 0x40, 0x40}};
  for (const auto& date : bad) EXPECT_EQ(MTF::mtf_date_time_to_time(date), 0) << int{date[2]};
}

}  // namespace
