#include "services/piece_name.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using namespace MTF;

TEST(Piece_Name, DifferAndComeBack) {
  std::set<std::string> names;
  std::size_t count = 0;
  for (const char* stem : {"a", "a.1", "a.1.1", "a.f", "a.1.1.mtf"}) {
    for (unsigned seq : {1U, 11U, 0xFFFFFFFFU}) {
      for (unsigned long long channel : {0ULL, 1ULL, ~0ULL}) {
        for (bool flag : {false, true}) {
          std::string media, catalog, plain;
          mtf_name(stem, seq, channel, flag, media);
          cat_name(stem, seq, channel, flag, catalog);
          names.insert({media, catalog});
          count += 2;
          mtf_name(stem, seq, channel, plain);
          EXPECT_EQ(plain == media, !flag);
          cat_name(stem, seq, channel, plain);
          EXPECT_EQ(plain == catalog, !flag);
          Piece_Name back;
          ASSERT_TRUE(parse_piece_name(catalog, back)) << catalog;
          EXPECT_EQ(back.stem, stem);
          EXPECT_EQ(back.seq, seq);
          EXPECT_EQ(back.channel, channel);
          EXPECT_EQ(back.flag, flag);
          EXPECT_TRUE(back.catalog);
        }
      }
    }
  }
  EXPECT_EQ(names.size(), count);
}

TEST(Piece_Name, WhatIsNone) {
  for (const char* name : {"", ".mtf", "a.mtf", "a.1.mtf", ".1.1.mtf", "a.01.1.mtf", "a.1.01.mtf",
                           "a.-1.1.mtf", "a.4294967296.1.mtf", "a.1.18446744073709551616.mtf",
                           "a.1.1.MTF", "a.1.1.mtf.part", "a.1.1", "a.1..mtf", "a.1.1.f.f.mtf"}) {
    Piece_Name out;
    EXPECT_FALSE(parse_piece_name(name, out)) << name;
  }
}

}  // namespace
