// The streams of file content, byte by byte.
#include "mtf/writer/nt_stream.h"

#include <gtest/gtest.h>

#include <random>

#include "mtf/writer/backup_context.h"
#include "services/compression.h"
#include "tests/support/media_layout.h"
#include "tests/support/test_job.h"

namespace {

using namespace MTF;
using test_support::Memory_Writer;
using test_support::naive_checksum;
using test_support::number;
using test_support::Op;

class Data_Stream : public testing::Test {
 protected:
  Data_Stream() : handler(new test_support::Events), stream(handler), ctx(12, 9) {
    data.expand(0x10000);
  }

  // Writes `text` as one buffer.
  bool put(const std::string& text) {
    data.copy(text.data(), static_cast<unsigned>(text.size()));
    data.size(static_cast<unsigned>(text.size()));
    return stream.write_data(data, writer);
  }

  static unsigned checksum(const std::string& bytes) {
    unsigned sum = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      sum ^= static_cast<unsigned>(static_cast<unsigned char>(bytes[i])) << (8 * (i % 4));
    }
    return sum;
  }

  Ref_Ptr<Event_Handler> handler;
  Variable_Standard_Data_Stream stream;
  Backup_Context ctx;
  Memory_Writer writer;
  Buffer data{8};
};

TEST_F(Data_Stream, Plain) {
  stream.Standard_Data_Stream::reset_stream(5, 0, 1);
  ASSERT_TRUE(stream.write_hdr(writer));
  EXPECT_TRUE(put(""));
  EXPECT_EQ(writer.storage().calls(Op::flush), 0U);
  ASSERT_TRUE(put("abc"));
  ASSERT_TRUE(put("de"));
  EXPECT_EQ(writer.storage().calls(Op::flush), 1U);
  ASSERT_TRUE(stream.end_stream(writer));
  EXPECT_EQ(writer.bytes.substr(0, 20), std::string("STAN\0\0\x20\0\5\0\0\0\0\0\0\0\0\0\0\0", 20));
  EXPECT_EQ(number(writer.bytes, 20, 2), naive_checksum(writer.bytes.data(), 20));
  EXPECT_EQ(writer.bytes.substr(22), "abcde");
  EXPECT_EQ(stream.checksum(), checksum("abcde"));
  EXPECT_EQ(stream.written_size(), 27U);
  const auto progress = handler->progress();
  EXPECT_EQ(progress.done_size, 5U);
  EXPECT_EQ(progress.done_count, 1U);
}

TEST_F(Data_Stream, EmptyIsNeitherChecksummedNorFlushed) {
  stream.Standard_Data_Stream::reset_stream(0, 0, 1);
  ASSERT_TRUE(stream.write_hdr(writer));
  ASSERT_TRUE(stream.end_stream(writer));
  EXPECT_EQ(writer.bytes.substr(0, 16), std::string("STAN\x8\0\0\0\0\0\0\0\0\0\0\0", 16));
  EXPECT_FALSE(stream.checksummed());
  EXPECT_EQ(writer.storage().calls(Op::flush), 0U);
}

TEST_F(Data_Stream, ChunksOfAnUnknownLength) {
  const struct {
    unsigned length;
    bool is_end;
    unsigned attributes;
  } cases[] = {{3, false, 0x22}, {3, true, 0x24}, {0, true, 0x04}};
  for (const auto& c : cases) {
    writer.bytes.clear();
    stream.reset_stream(c.length, c.is_end, 0, 1);
    ASSERT_TRUE(stream.write_hdr(writer));
    EXPECT_EQ(number(writer.bytes, 6, 2), c.attributes);
    EXPECT_EQ(number(writer.bytes, 4, 2), c.length == 0 ? 8U : 0U);
  }
}

TEST_F(Data_Stream, FramesAreNumberedAndChecksummedAsTheyLie) {
  constexpr unsigned frames = 258;
  const std::string text(100, 'x');
  stream.Standard_Data_Stream::reset_stream(frames * 100, compression_lz4, 1);
  ASSERT_TRUE(stream.write_hdr(writer));
  EXPECT_EQ(number(writer.bytes, 6, 2), 0x30U);
  EXPECT_EQ(number(writer.bytes, 18, 2), 1U);
  for (unsigned i = 0; i < frames; ++i) ASSERT_TRUE(put(text));
  ASSERT_TRUE(stream.end_stream(writer));
  EXPECT_EQ(stream.checksum(), checksum(writer.bytes.substr(22)));
  EXPECT_EQ(stream.written_size(), writer.bytes.size());
  std::size_t at = 22;
  for (unsigned i = 1; i <= frames; ++i) {
    ASSERT_EQ(writer.bytes.substr(at, 2), "FH");
    EXPECT_EQ(number(writer.bytes, at + 4, 8), (frames - i + 1) * 100);
    EXPECT_EQ(number(writer.bytes, at + 12, 4), 100U);
    const unsigned expected = i <= 254 ? i : i <= 256 ? 0 : i - 256;
    EXPECT_EQ(number(writer.bytes, at + 20, 1), expected) << "frame " << i;
    EXPECT_EQ(number(writer.bytes, at + 22, 2), naive_checksum(&writer.bytes[at], 22));
    const auto stored = number(writer.bytes, at + 16, 4);
    EXPECT_LT(stored, 100U);
    std::string back(100, '?');
    EXPECT_TRUE(decompress(compression_lz4, &writer.bytes[at + 24], stored, &back[0], 100));
    EXPECT_EQ(back, text);
    at += 24 + stored;
  }
  EXPECT_EQ(at, writer.bytes.size());
}

TEST_F(Data_Stream, WhatDoesNotShrinkIsStoredAsItCame) {
  std::mt19937 random(1);
  std::string noise(4096, '\0');
  for (char& byte : noise) byte = static_cast<char>(random());
  for (unsigned short method : {compression_lz4, compression_zstd}) {
    writer.bytes.clear();
    stream.Standard_Data_Stream::reset_stream(noise.size(), method, 1);
    ASSERT_TRUE(put(noise));
    EXPECT_EQ(number(writer.bytes, 12, 4), 4096U);
    EXPECT_EQ(number(writer.bytes, 16, 4), 4096U);
    EXPECT_EQ(writer.bytes.substr(24), noise);
  }
}

TEST_F(Data_Stream, IsFilledUpWithZeros) {
  constexpr unsigned long long length = 0x20000 + 5;
  for (unsigned short method : {compression_none, compression_zstd}) {
    writer.bytes.clear();
    ctx.set_length(1000);
    stream.Standard_Data_Stream::reset_stream(length, method, 1);
    ASSERT_TRUE(stream.write_hdr(writer));
    ASSERT_TRUE(put("abc"));
    ASSERT_TRUE(fill_stream(ctx, stream, data, writer));
    EXPECT_EQ(ctx.length, 1000 + writer.bytes.size());
    if (method == 0) {
      EXPECT_EQ(writer.bytes.substr(22), "abc" + std::string(length - 3, '\0'));
      continue;
    }
    std::size_t frames = 0, taken = 0;
    for (std::size_t at = 22; at < writer.bytes.size(); ++frames) {
      taken += number(writer.bytes, at + 12, 4);
      at += 24 + number(writer.bytes, at + 16, 4);
    }
    EXPECT_EQ(taken, length);
    EXPECT_EQ(frames, 4U);
  }
}

TEST_F(Data_Stream, Failures) {
  test_support::Log_Lines log;
  const test_support::Capture capture(log);
  const auto reset = [this](unsigned short method) {
    stream.Standard_Data_Stream::reset_stream(3, method, 1);
  };
  data.size(3);
  Memory_Writer no_flush({Op::flush, 1});
  reset(0);
  EXPECT_FALSE(stream.write_data(data, no_flush));
  EXPECT_EQ(log.count("128 Failed to flush before write 0x4E415453 stream data\n"), 1);
  EXPECT_TRUE(no_flush.bytes.empty());
  for (unsigned n : {1U, 2U}) {
    Memory_Writer failing({Op::write, n});
    reset(compression_lz4);
    EXPECT_FALSE(stream.write_data(data, failing));
  }
  EXPECT_EQ(log.count("128 Failed to write compress STAN stream\n"), 2);
  Memory_Writer failing({Op::write, 1});
  reset(0);
  EXPECT_FALSE(stream.write_hdr(failing));
  EXPECT_EQ(stream.written_size(), 0U);
  EXPECT_FALSE(stream.end_stream(writer));
  EXPECT_EQ(log.count("128 Invalid current size: 0, stream length: 3\n"), 1);
  handler->set_canceling();
  EXPECT_FALSE(stream.write_data(data, writer));
}

}  // namespace
