// Where things land on a media.
#include <gtest/gtest.h>

#include "mtf/writer/backup_context.h"
#include "mtf/writer/backup_option.h"
#include "mtf/writer/dblk_writer.h"
#include "tests/support/fault_channel.h"
#include "tests/support/media_layout.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace MTF;
using namespace test_support;

struct Position {
  explicit Position(unsigned long long length) : ctx(12, 9) { ctx.set_length(length); }
  Backup_Option opt;
  Backup_Context ctx;
  Ref_Ptr<Buffer> buf = make_buffer();
  Memory_Writer writer;
};

TEST(Alignment, OfASpadStreamAtEachDistanceFromTheGrid) {
  for (const unsigned a : {512U, 4096U}) {
    const struct {
      unsigned below, align, n;
    } cases[] = {{0, 0, a},       {100, 0, 100},   {24, 0, 24}, {23, 3, a + 20},  {22, 2, a + 20},
                 {21, 1, a + 20}, {20, 0, a + 20}, {1, 1, a},   {a - 1, 3, a - 4}};
    for (const auto& c : cases) {
      const unsigned long long multiple = (1ULL << 40) + 3ULL * a;
      Position at(multiple - c.below);
      ASSERT_TRUE(write_spad_stream(at.opt, at.ctx, at.buf, at.writer, a == 512));
      const std::string& bytes = at.writer.bytes;
      ASSERT_EQ(bytes.size(), c.align + c.n) << c.below;
      EXPECT_EQ(bytes.substr(0, c.align), std::string(c.align, '\0'));
      EXPECT_EQ(bytes.substr(c.align, 4), "SPAD");
      EXPECT_EQ(get_le(bytes, c.align + 8, 8), c.n - 22);
      EXPECT_EQ(bytes.substr(c.align + 22), std::string(c.n - 22, '\0'));
      EXPECT_EQ(at.ctx.length, multiple - c.below + c.align + c.n);
      EXPECT_EQ(at.ctx.length % a, 0U);
    }
  }
}

TEST(Copy_File, WhatCannotBeReadOrWrittenFails) {
  const Temp_Dir tmp;
  write_file(tmp / "f", std::string(65537, 'x'));
  Memory_Writer writer, failing({Op::write, 2});
  EXPECT_EQ(copy_file(tmp / "f", writer), 65537);
  EXPECT_EQ(copy_file(tmp / "f", failing), -1);
  for (const std::string& path : {tmp.path(), tmp / "none"}) EXPECT_EQ(copy_file(path, writer), -1);
}

}  // namespace
