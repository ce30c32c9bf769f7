// The file of a catalog, and its totals.
#include "mtf/writer/catalog_stream.h"

#include <gtest/gtest.h>

#include "tests/support/fault_channel.h"
#include "tests/support/media_layout.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace MTF;
using test_support::number;

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

TEST_F(Catalog, SizesOfFilesAtTheLimits) {
  start();
  const auto& s = stream.summary();
  const struct {
    unsigned long long space;
    unsigned small, large;  // so far
  } cases[] = {{0, 1, 0},         {102400, 2, 0},    {102401, 2, 0},
               {524287999, 2, 0}, {524288000, 2, 1}, {1ULL << 50, 2, 2}};
  for (const auto& c : cases) {
    ASSERT_TRUE(add_file(c.space));
    EXPECT_EQ(s.small_file_count(), c.small) << c.space;
    EXPECT_EQ(s.large_file_count(), c.large) << c.space;
  }
  stream.set_storage_size_to_summary(5);
  EXPECT_EQ(s.storage_size(), 5U);
  const std::string bytes = finish();
  EXPECT_EQ(number(bytes, 2, 4), 1U);
  EXPECT_EQ(number(bytes, 54, 8) + number(bytes, 62, 8), 4U);
  EXPECT_EQ(number(bytes, 78, 8), 0U);
  EXPECT_EQ(number(bytes, 94, 2), test_support::naive_checksum(bytes.data(), 94));
  EXPECT_EQ(bytes.substr(96, 4) + bytes.substr(118, 2), "META{}");
}

TEST_F(Catalog, WhatEachKindOfEntryAdds) {
  start();
  const auto& s = stream.summary();
  Vol_Blk vol(image, true);
  ASSERT_TRUE(vol.device_name("C:"));
  ASSERT_TRUE(stream.add_vol_blk(vol));
  ASSERT_TRUE(stream.add_dir_blk(Dir_Blk(image, true), 1, std::string("d\0", 2)));
  ASSERT_TRUE(add_file(10));
  ASSERT_TRUE(stream.add_slnk_blk(SLnk_Blk(image, true), 100, 9, 0, "s"));
  ASSERT_TRUE(stream.add_hlnk_blk(HLnk_Blk(image, true), 1000, 9, 0, "h"));
  ASSERT_TRUE(stream.add_devb_blk(Devb_Blk(image, true), 10000, 9, 0, "v"));
  ASSERT_TRUE(stream.add_pdat_blk(PDat_Blk(image, true), "p"));
  ASSERT_TRUE(stream.add_cfil_blk(CFil_Blk(image, true)));
  EXPECT_EQ(s.vol_count(), 1U);
  EXPECT_EQ(s.dir_count(), 1U);
  EXPECT_EQ(s.file_count(), 4U);
  EXPECT_EQ(s.total_size(), 10111U);
  // An entry of an earlier job keeps what it says of itself, with a checksum computed anew.
  Cat_File_Blk old;
  ASSERT_TRUE(old.alloc_buffer(80));
  ASSERT_TRUE(old.set(6, "old", 0, 5, 0, 3));
  old.hdr().space(100000);
  ASSERT_TRUE(stream.add_cat_file_blk(old));
  EXPECT_EQ(s.file_count(), 5U);
  EXPECT_EQ(s.inc_file_count(), 4U);
  EXPECT_EQ(s.total_size(), 110111U);
  EXPECT_EQ(s.inc_size(), 10111U);
  // An entry without a name is refused and counts nothing.
  EXPECT_FALSE(stream.add_file_blk(File_Blk(image, true), 1, 1, 0, ""));
  EXPECT_FALSE(stream.add_vol_blk(Vol_Blk(image, true)));
  EXPECT_EQ(s.total_size(), 110111U);
  const std::string bytes = finish();
  EXPECT_EQ(test_support::catalog_entries(bytes),
            (std::vector<std::string>{"VOLB C:", "DIRB d\\", "FILE f", "KNLS s", "HLNK h", "DEVB v",
                                      "PDAT p", "FILE old", "FEND"}));
  // The FILE entry behind summary, metadata, VOLB and DIRB.
  const std::size_t file = 96 + 24 + 70 + 75;
  EXPECT_EQ(number(bytes, file + 6, 2), 7U);
  EXPECT_EQ(number(bytes, file + 24, 8), 16U * 512);
  EXPECT_EQ(number(bytes, file + 32, 8), 20U);
  EXPECT_EQ(number(bytes, file + 40, 2), 0x8002U);
  EXPECT_EQ(number(bytes, file + 44, 4), 9U);
  EXPECT_EQ(number(bytes, file + 61, 1), 0xFCU);
  const std::size_t last = bytes.size() - 64 - 76;
  EXPECT_EQ(number(bytes, last + 6, 2), 6U);
  EXPECT_EQ(number(bytes, last + 62, 2), test_support::naive_checksum(&bytes[last], 62));
}

}  // namespace
