// The file of a catalog, and its totals.
#include "mtf/writer/catalog_stream.h"

#include <gtest/gtest.h>

#include "tests/support/fault_channel.h"
#include "tests/support/media_layout.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace MTF;
using test_support::get_le;

class Catalog : public testing::Test {
 protected:
  Catalog() : stream(4, 512, 4096, 0x8000) {
    test_support::write_file(path, std::string(1000, 'x'));
    image.expand(1024);
  }

  void start() {
    ASSERT_TRUE(stream.open(path));
    Tape_Blk tape(image, true);
    tape.media_sequence_number(7);
    ASSERT_TRUE(stream.add_tape_blk(tape));
    Metadata_Stream meta(make_buffer());
    ASSERT_TRUE(meta.set_data("{}", 2));
    ASSERT_TRUE(stream.add_meta_stream(meta));
    SSet_Blk sset(image, true);
    sset.hdr().format_logical_address(20);
    sset.time_zone(-4);
    ASSERT_TRUE(stream.add_sset_blk(sset));
  }

  bool add_file(unsigned long long space) {
    return stream.add_file_blk(File_Blk(image, true), space, 9, 2, "f");
  }

  std::string finish() {
    EXPECT_TRUE(stream.add_eset_blk(ESet_Blk(image, true)));
    test_support::Memory_Writer writer;
    const long long size = stream.write(writer);
    EXPECT_EQ(size, static_cast<long long>(writer.bytes.size()));
    return writer.bytes;
  }

  const test_support::Temp_Dir tmp;
  const std::string path = tmp / "c";
  Catalog_Stream stream;
  Buffer image{8};
};

TEST_F(Catalog, WhatEachEntryAdds) {
  start();
  const auto& s = stream.summary();
  unsigned long long sum = 0;
  const struct {
    unsigned long long space;
    unsigned small, large;  // so far
  } cases[] = {{0, 1, 0},         {102400, 2, 0},    {102401, 2, 0},
               {524287999, 2, 0}, {524288000, 2, 1}, {1ULL << 50, 2, 2}};
  for (const auto& c : cases) {
    ASSERT_TRUE(add_file(c.space));
    sum += c.space;
    EXPECT_EQ(s.small_file_count(), c.small) << c.space;
    EXPECT_EQ(s.large_file_count(), c.large) << c.space;
  }
  // A further name has no size of its own. What has no name is refused and counts nothing.
  ASSERT_TRUE(stream.add_hlnk_blk(HLnk_Blk(image, true), 200000, 9, 0, "h"));
  EXPECT_FALSE(stream.add_file_blk(File_Blk(image, true), 1, 1, 0, ""));
  EXPECT_FALSE(stream.add_vol_blk(Vol_Blk(image, true)));
  // An entry of an earlier job keeps what it says of itself, with a checksum computed anew.
  Cat_File_Blk old;
  ASSERT_TRUE(old.alloc_buffer(80) && old.set(6, "old", 0, 1, 0, 3));
  old.hdr().space(200000);
  ASSERT_TRUE(stream.add_cat_file_blk(old));
  EXPECT_EQ(s.total_size() - s.inc_size(), 200000U);
  EXPECT_EQ(s.inc_size(), sum);
  EXPECT_EQ(s.file_count(), 8U);
  stream.set_storage_size_to_summary(5);
  EXPECT_EQ(s.storage_size(), 5U);
  const std::string bytes = finish();
  EXPECT_EQ(get_le(bytes, 2, 4), 1U);
  EXPECT_EQ(get_le(bytes, 54, 8) + get_le(bytes, 62, 8), 4U);
  EXPECT_EQ(get_le(bytes, 78, 8), 0U);
  EXPECT_EQ(get_le(bytes, 94, 2), test_support::xor16(bytes, 0, 94));
  EXPECT_EQ(bytes.substr(96, 4) + bytes.substr(118, 2), "META{}");
  const std::size_t last = bytes.size() - 64 - 76, file = bytes.find("FILE") - 2;
  EXPECT_EQ(get_le(bytes, last + 62, 2), test_support::xor16(bytes, last, 62));
  // The flags of the job with those of the entry, and the hours from UTC.
  EXPECT_EQ(get_le(bytes, file + 40, 2), 0x8002U);
  EXPECT_EQ(get_le(bytes, file + 61, 1), 0xFCU);
}

}  // namespace
