// Where things land on a media.
#include <gtest/gtest.h>

#include "mtf/writer/backup_context.h"
#include "mtf/writer/backup_option.h"
#include "mtf/writer/dblk_writer.h"
#include "tests/support/fault_channel.h"
#include "tests/support/log_lines.h"
#include "tests/support/media_layout.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace MTF;
using namespace test_support;

TEST(Backup_Context, AddressesStayExactBeyond32Bits) {
  const struct {
    unsigned long long length, fla, pba;
  } cases[] = {{0, 0, 0},
               {511, 0, 0},
               {512, 1, 0},
               {4096, 8, 1},
               {5000, 9, 1},
               {1ULL << 40, 1ULL << 31, 1ULL << 28},
               {(1ULL << 50) + 4095, (1ULL << 41) + 7, 1ULL << 38}};
  Backup_Context ctx(12, 9);
  for (const auto& c : cases) {
    ctx.set_length(c.length);
    ctx.add_length(0);
    EXPECT_EQ(ctx.fla, c.fla);
    EXPECT_EQ(ctx.pba, c.pba);
  }
}

TEST(Backup_Context, ShadowVolumes) {
  Log_Lines log;
  const Capture capture(log);
  const std::map<std::string, std::string> shadows{{"C:", "/snap"}};
  Backup_Context ctx(12, 9);
  ctx.set_cur_vol("C:");
  EXPECT_EQ(ctx.shadow_vol, "");
  ctx.volume_map = &shadows;
  for (const char* volume : {"C:", "D:"}) {
    ctx.cur_dir = "d\\";
    ctx.set_cur_vol(volume);
    EXPECT_EQ(ctx.shadow_vol + ctx.cur_dir, *volume == 'C' ? "/snap" : "");
  }
  EXPECT_EQ(log.count("32 Failed to find shadow volume, vol=D:\n"), 1);
}

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
      EXPECT_EQ(number(bytes, c.align + 8, 8), c.n - 22);
      EXPECT_EQ(bytes.substr(c.align + 22), std::string(c.n - 22, '\0'));
      EXPECT_EQ(at.ctx.length, multiple - c.below + c.align + c.n);
      EXPECT_EQ(at.ctx.length % a, 0U);
    }
  }
}

TEST(Alignment, OfStreamsAndPhysicalBlocks) {
  for (unsigned length = 4096; length <= 4100; ++length) {
    Position stream(length), block(length);
    ASSERT_TRUE(write_to_stream_align(stream.ctx, stream.writer));
    EXPECT_EQ(stream.ctx.length, length == 4096 ? 4096U : 4100U);
    EXPECT_EQ(stream.writer.bytes, std::string(stream.ctx.length - length, '\0'));
    ASSERT_TRUE(write_pba_align(block.opt, block.ctx, block.writer));
    EXPECT_EQ(block.ctx.length, length == 4096 ? 4096U : 8192U);
    EXPECT_EQ(block.writer.bytes, std::string(block.ctx.length - length, '\0'));
  }
}

TEST(Alignment, AShortWriteIsTold) {
  Log_Lines log;
  const Capture capture(log);
  for (unsigned n : {1U, 2U}) {
    Memory_Writer failing({Op::write, n});
    Position at(4097);
    EXPECT_FALSE(write_spad_stream(at.opt, at.ctx, at.buf, failing, true));
    EXPECT_EQ(at.ctx.err_code, 9U);
    EXPECT_EQ(at.ctx.err_msg, writer_text);
  }
  EXPECT_EQ(log.count("32 Failed to write stream align\n"), 1);
  Memory_Writer failing({Op::write, 1});
  Position at(4097);
  EXPECT_FALSE(write_pba_align(at.opt, at.ctx, failing));
  EXPECT_EQ(at.ctx.err_code, 0U);
  EXPECT_EQ(log.count("32 Failed to write pba align\n"), 1);
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
