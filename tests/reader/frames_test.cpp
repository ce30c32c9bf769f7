#include <gtest/gtest.h>
#include <lz4.h>

#include "mtf/reader/stream_data.h"
#include "tests/support/job_media.h"

namespace {

using test::Frame;

std::string lz4(const std::string& text) {
  std::string out(LZ4_compressBound(static_cast<int>(text.size())), '\0');
  out.resize(LZ4_compress_default(text.data(), out.data(), static_cast<int>(text.size()),
                                  static_cast<int>(out.size())));
  return out;
}

struct Reading {
  bool end_known;
  std::string content;
  std::string faults;
};

// Reads a stream in frames that starts a piece.
Reading read_frames(const std::vector<Frame>& frames, unsigned int method,
                    unsigned long long length, const std::function<void(std::string&)>& harm = {}) {
  test::Media_Bytes bytes;
  bytes.frames("STAN", frames, method, length);
  test::Memory_Store store;
  store.held["p"] = bytes.data;
  if (harm) harm(store.held["p"]);
  std::string error;
  const auto reader = store.open("p", error);
  MTF::Piece_Window window(*reader);
  Reading out;
  const MTF::Fault_At on_fault = [&](unsigned long long, const std::string& text) {
    out.faults += text + "\n";
  };
  const auto header = MTF::read_stream_header(window.view(0, MTF::stream_header_size));
  const auto sink = [&](const char* data, std::size_t size) {
    out.content.append(data, size);
    return true;
  };
  MTF::Stream_Data data;
  out.end_known =
      MTF::Stream_Data_Reader(window, on_fault).read(header, MTF::stream_header_size, sink, data);
  return out;
}

const std::string runs(5000, 'r');

TEST(Frames, Sequence_numbers_wrap_at_eight_bits_and_skip_255) {
  std::vector<Frame> frames(600, Frame{"x", "x"});
  EXPECT_EQ(read_frames(frames, 1, 600).faults, "");
  // The 255th and the 256th frame both carry 0, the 257th 1.
  const auto frame_at = [](int nth) { return 22 + 25 * (nth - 1); };
  test::Media_Bytes bytes;
  bytes.frames("STAN", frames, 1, 600);
  for (const auto& [nth, number] : {std::pair{254, 254}, {255, 0}, {256, 0}, {257, 1}, {511, 0}}) {
    EXPECT_EQ(static_cast<unsigned char>(bytes.data[frame_at(nth) + 20]), number) << nth;
  }
}

// Sets a field of the first frame header, whose checksum stays right.
std::function<void(std::string&)> set(int offset, unsigned long long value, int width) {
  return [=](std::string& bytes) {
    test::set_le(bytes, 22 + offset, value, width);
    test::set_le(bytes, 22 + 22, test::xor16(bytes, 22, 22), 2);
  };
}

TEST(Frames, Damage_is_told_and_nothing_is_believed) {
  const std::string stored = lz4(runs);
  const struct {
    std::function<void(std::string&)> harm;
    bool end_known;
    const char* text;
  } cases[] = {
      {set(0, 0x4847, 2), false, "frame header is damaged"},
      {[](std::string& bytes) { bytes[22 + 4] ^= 1; }, false, "frame header is damaged"},
      {set(2, 0x10, 2), true, "other attributes"},
      {set(4, 4999, 8), true, "wrong remaining stream size"},
      {set(12, 0, 4), false, "wrong uncompressed size"},
      {set(12, 5001, 4), false, "wrong uncompressed size"},
      {set(16, 0xFFFFFFFF, 4), false, "larger than its data"},
      {set(20, 2, 1), true, "wrong sequence number"},
      {[](std::string& bytes) { bytes[22 + 24] ^= 0x70; }, true, "can't be expanded"},
      {[](std::string& bytes) { bytes.resize(22 + 23); }, false, "runs past the end"},
      {[](std::string& bytes) { bytes.resize(22 + 26); }, false, "can't be read"},
  };
  for (const auto& row : cases) {
    const Reading out = read_frames({{runs, stored}}, 1, runs.size(), row.harm);
    EXPECT_EQ(out.end_known, row.end_known) << row.text;
    EXPECT_NE(out.faults.find(row.text), std::string::npos) << row.text << ": " << out.faults;
    EXPECT_LE(out.content.size(), runs.size());
  }
}

TEST(Frames, A_claimed_size_allocates_nothing_beyond_the_limit) {
  const unsigned long long huge = 0xFFFFFFFF;
  const Reading out = read_frames({{runs, lz4(runs)}}, 1, huge, set(12, huge, 4));
  EXPECT_FALSE(out.end_known);
  EXPECT_NE(out.faults.find("too large"), std::string::npos) << out.faults;
}

}  // namespace
