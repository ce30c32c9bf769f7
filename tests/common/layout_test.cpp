// The bytes of blocks and streams, against bytes written down by hand.
#include <gtest/gtest.h>

#include "mtf/common/checksum_stream.h"
#include "mtf/common/compression_stream.h"
#include "mtf/common/dir_blk.h"
#include "mtf/common/end_blks.h"
#include "mtf/common/file_blk.h"
#include "mtf/common/metadata_stream.h"
#include "mtf/common/name_stream.h"
#include "mtf/common/pad_stream.h"
#include "mtf/common/sset_blk.h"
#include "mtf/common/stat_record.h"
#include "mtf/common/tape_blk.h"
#include "mtf/common/vol_blk.h"
#include "tests/support/fault_channel.h"
#include "tests/support/media_layout.h"

namespace {

using namespace MTF;
using test_support::Memory_Writer;
using test_support::naive_checksum;

// 2000-02-29 12:34:56
constexpr long long leap_day = 951827696;
constexpr const char* leap_day_hex = "1F40BAC8B8 ";

// The bytes of two hex digits each; spaces are for the eye.
std::string bytes_of(const std::string& hex) {
  std::string bytes, digits;
  for (char c : hex) {
    if (c == ' ') continue;
    digits += c;
    if (digits.size() < 2) continue;
    bytes += static_cast<char>(std::stoi(digits, nullptr, 16));
    digits.clear();
  }
  return bytes;
}

std::string hex_of(const std::string& bytes) {
  std::string hex;
  for (char c : bytes) {
    char pair[3];
    std::snprintf(pair, sizeof pair, "%02X", static_cast<unsigned char>(c));
    hex += pair;
  }
  return hex;
}

// `bytes` with the checksum over the first `at` of them put at `at`.
std::string sealed(std::string bytes, std::size_t at) {
  const unsigned short sum = naive_checksum(bytes.data(), at);
  bytes[at] = static_cast<char>(sum & 0xFF);
  bytes[at + 1] = static_cast<char>(sum >> 8);
  return bytes;
}

// A 52-byte header with attributes 0xA1A2A3A4, size 2^40 + 7, address 2^33 + 1 and block id 9.
std::string header_hex(const std::string& letters, const std::string& first_event) {
  return hex_of(letters) + "A4A3A2A1" + first_event + "0E 00" + "0700000000010000" +
         "0100000002000000" + "0000000000000000" + "09000000" + "0000000000000000" + "01 00 0000";
}

void fill_header(DBLK& blk) {
  blk.hdr().attributes(0xA1A2A3A4);
  blk.hdr().displayable_size((1ULL << 40) + 7);
  blk.hdr().format_logical_address((1ULL << 33) + 1);
  blk.hdr().control_block_id(9);
}

// A buffer that has held other things before.
class Used_Buffer : public Buffer {
 public:
  Used_Buffer() : Buffer(8) {
    expand(2048);
    std::fill(data(), data() + capacity(), '\x5A');
  }
};

template <class Blk>
std::string written(Blk& blk) {
  Memory_Writer writer;
  const unsigned long long size = blk.write(writer);
  EXPECT_EQ(size, writer.bytes.size());
  EXPECT_EQ(writer.storage().calls(test_support::Op::write), 1U);
  return writer.bytes;
}

#define EXPECT_BLOCK(blk, hex) EXPECT_EQ(hex_of(written(blk)), hex_of(sealed(bytes_of(hex), 50)))

TEST(Layout, Tape) {
  Used_Buffer buffer;
  Tape_Blk blk(buffer, true);
  fill_header(blk);
  blk.media_family_id(0x11223344);
  blk.tape_attributes(0x00000003);
  blk.media_sequence_number(0x5566);
  blk.soft_filemark_block_size(0x1000);
  blk.media_based_catalog_type(1);
  blk.format_logical_block_size(512);
  blk.media_date(leap_day);
  blk.mtf_major_version(1);
  blk.media_name("N");
  blk.media_description("DE");
  blk.software_name("SOF");
  EXPECT_BLOCK(blk, header_hex("TAPE", "6400") +
                        "44332211 03000000 6655 0000 0010 0100 01005E00 02005F00 00000000"
                        "03006100 0002 0000" +
                        leap_day_hex + "01 4E 4445 534F46");
}

TEST(Layout, Sset) {
  Used_Buffer buffer;
  SSet_Blk blk(buffer, true);
  fill_header(blk);
  blk.sset_attributes(4);
  blk.software_compression_algorithm(2);
  blk.data_set_number(0x0102);
  blk.physical_block_address((1ULL << 32) + 5);
  blk.media_write_date(leap_day);
  blk.software_major_version(3);
  blk.software_minor_version(4);
  blk.time_zone(-8);
  blk.mtf_minor_version(1);
  blk.media_catalog_version(2);
  EXPECT_BLOCK(blk, header_hex("SSET", "6400") +
                        "06000000 0000 0200 0000 0201 00000000 00000000 00000000 00000000"
                        "0500000001000000" +
                        leap_day_hex + "03 04 F8 01 02 0000");
}

TEST(Layout, Volb) {
  Used_Buffer buffer;
  Vol_Blk blk(buffer, true);
  fill_header(blk);
  blk.volb_attributes(4);
  EXPECT_TRUE(blk.device_name("C:"));
  EXPECT_TRUE(blk.machine_name("host1"));
  blk.media_write_date(leap_day);
  EXPECT_BLOCK(blk, header_hex("VOLB", "5000") + "04000000 02004900 00000000 05004B00" +
                        leap_day_hex + "433A 686F737431");
}

TEST(Layout, Dirb) {
  Used_Buffer buffer;
  Dir_Blk blk(buffer, true);
  fill_header(blk);
  blk.dirb_attributes(0x900);
  blk.last_modification_date(0);
  blk.creation_date(leap_day);
  blk.backup_date(0);
  blk.last_access_date(leap_day);
  blk.directory_id(0x01020304);
  EXPECT_TRUE(blk.directory_name(std::string("a\0", 2)));
  EXPECT_BLOCK(blk, header_hex("DIRB", "5800") + "00090000 1EC8420000" + leap_day_hex +
                        "1EC8420000" + leap_day_hex + "04030201 02005400 6100 0000");
}

template <class Blk>
void expect_file_shape(const char* letters) {
  Used_Buffer buffer;
  Blk blk(buffer, true);
  fill_header(blk);
  blk.file_attributes(0x800);
  blk.last_modification_date(leap_day);
  blk.creation_date(0);
  blk.backup_date(leap_day);
  blk.last_access_date(0);
  blk.directory_id(0x01020304);
  blk.file_id(0x05060708);
  EXPECT_TRUE(blk.file_name("f"));
  EXPECT_BLOCK(blk, header_hex(letters, "5C00") + "00080000" + leap_day_hex + "1EC8420000" +
                        leap_day_hex + "1EC8420000 04030201 08070605 01005800 66 000000");
}

TEST(Layout, FileAndItsLike) {
  expect_file_shape<File_Blk>("FILE");
  expect_file_shape<PDat_Blk>("PDAT");
  expect_file_shape<HLnk_Blk>("HLNK");
  expect_file_shape<SLnk_Blk>("KNLS");
  expect_file_shape<Devb_Blk>("DEVB");
}

TEST(Layout, Ends) {
  Used_Buffer buffer;
  CFil_Blk cfil(buffer, true);
  fill_header(cfil);
  cfil.cfil_attributes(0x20000);
  cfil.stream_offset((1ULL << 32) + 2);
  cfil.stream_number(0x0102);
  EXPECT_BLOCK(cfil,
               header_hex("CFIL", "4C00") + "00000200 0000000000000000 0200000001000000 0201 0000");
  ESet_Blk eset(buffer, true);
  fill_header(eset);
  eset.eset_attributes(6);
  eset.corrupt_file_count(0xFFFFFFFF);
  eset.fdd_pba(1);
  eset.sm_pba(2);
  eset.fdd_media_sequence_number(3);
  eset.data_set_number(4);
  eset.media_write_date(leap_day);
  const std::string eset_hex = "06000000 FFFFFFFF 0100000000000000 0200000000000000 0300 0400";
  EXPECT_BLOCK(eset, header_hex("ESET", "5800") + eset_hex + leap_day_hex + "000000");
  // A block can be changed and written again.
  eset.fdd_pba(9);
  EXPECT_EQ(written(eset)[60], 9);
  EOTM_Blk eotm(buffer, true);
  fill_header(eotm);
  eotm.last_eset_pba((1ULL << 32) + 3);
  EXPECT_BLOCK(eotm, header_hex("EOTM", "3C00") + "0300000001000000");
}

TEST(Layout, BlocksWithoutStrings) {
  Used_Buffer buffer;
  EXPECT_EQ(written(*std::make_unique<Tape_Blk>(buffer, true)).size(), 96U);
  EXPECT_EQ(written(*std::make_unique<SSet_Blk>(buffer, true)).size(), 100U);
  EXPECT_EQ(written(*std::make_unique<Vol_Blk>(buffer, true)).size(), 76U);
  EXPECT_EQ(written(*std::make_unique<Dir_Blk>(buffer, true)).size(), 84U);
  EXPECT_EQ(written(*std::make_unique<File_Blk>(buffer, true)).size(), 88U);
  // A view changes nothing.
  EXPECT_EQ(Dir_Blk(buffer, false).hdr().type(), 0x454C4946U);
  Memory_Writer failing({test_support::Op::write, 1});
  EXPECT_EQ(File_Blk(buffer, true).write(failing), IWriter::failed);
}

std::string stream_hex(const char* letters, const std::string& length) {
  return hex_of(letters) + "0000 0000" + length + "0000 0000 0000";
}

#define EXPECT_STREAM(stream, hex) \
  EXPECT_EQ(hex_of(all_written(stream)), hex_of(sealed(bytes_of(hex), 20)))

std::string all_written(Stream& stream) {
  Memory_Writer writer;
  const unsigned long long size = stream.write(writer);
  EXPECT_EQ(size, writer.bytes.size());
  return writer.bytes;
}

TEST(Layout, Streams) {
  const Ref_Ptr<Buffer> buffer(new Used_Buffer);
  Pad_Stream pad(buffer);
  EXPECT_TRUE(pad.length(3));
  EXPECT_STREAM(pad, stream_hex("SPAD", "0300000000000000") + "000000");
  EXPECT_TRUE(pad.length(0));
  EXPECT_STREAM(pad, stream_hex("SPAD", "0000000000000000"));
  File_Name_Stream file(buffer);
  EXPECT_TRUE(file.name("ab"));
  EXPECT_STREAM(file, stream_hex("FNAM", "0200000000000000") + "6162");
  Path_Name_Stream path(buffer);
  EXPECT_TRUE(path.name(std::string("a\0", 2)));
  EXPECT_STREAM(path, stream_hex("PNAM", "0200000000000000") + "6100");
  Checksum_Stream sum(buffer);
  sum.checksum(0x01020304);
  EXPECT_STREAM(sum, stream_hex("CSUM", "0400000000000000") + "04030201");
  Metadata_Stream meta(buffer);
  EXPECT_TRUE(meta.set_data("{}", 2));
  EXPECT_STREAM(meta, stream_hex("META", "0200000000000000") + "7B7D");
  meta.hdr().file_system_attributes(0x0102);
  meta.hdr().media_format_attributes(0x0304);
  meta.hdr().data_compression_algorithm(0x0506);
  EXPECT_STREAM(meta, "4D455441 0201 0403 0200000000000000 0000 0605 0000 7B7D");
}

TEST(Layout, CompressionFrame) {
  Compression_Stream frame(0x0031);
  frame.hdr().remaining_stream_size((1ULL << 40) + 1);
  frame.hdr().uncompressed_size(0x10000);
  frame.hdr().sequence_number(254);
  Buffer data(8);
  ASSERT_TRUE(data.expand(3));
  data.copy("abc", 3);
  data.size(3);
  Memory_Writer writer;
  EXPECT_EQ(frame.write(data, writer), 27U);
  EXPECT_EQ(hex_of(writer.bytes),
            hex_of(sealed(
                bytes_of("4648 3100 0100000000010000 00000100 03000000 FE 00 0000 616263"), 22)));
}

TEST(Layout, StatRecords) {
  Used_Buffer buffer;
  Stat_Info_Setter info(buffer);
  info.gid(~0ULL);
  info.uid(1);
  info.mode(0x81A4);
  EXPECT_EQ(hex_of(std::string(buffer.data(), 25)),
            "FFFFFFFFFFFFFFFF0100000000000000A4810000000000005A");
  Stat_Extent_Setter extent(buffer);
  ASSERT_TRUE(extent.ready());
  unsigned long long value = 1;
  extent.gid(value++), extent.uid(value++), extent.mode(value++), extent.dev(value++);
  extent.ino(value++), extent.nlink(value++), extent.rdev(value++), extent.size(value++);
  extent.reserved(value++), extent.blocks(value++);
  EXPECT_TRUE(extent.owner("me"));
  EXPECT_TRUE(extent.group("all"));
  EXPECT_FALSE(extent.group(std::string(65536, 'x')));
  for (unsigned i = 0; i < 10; ++i) {
    EXPECT_EQ(test_support::number(std::string(buffer.data(), 88), 8 * i, 8), i + 1);
  }
  EXPECT_EQ(hex_of(std::string(buffer.data() + 80, 13)),
            "020058000300" + hex_of("Z") + "00" + hex_of("meall"));
}

// A name goes into a block up to byte 1024 of its image.
TEST(Limits, NamesInsideABlock) {
  Used_Buffer buffer;
  const auto name = [](unsigned size) { return std::string(size, 'n'); };
  for (unsigned extra : {0U, 1U}) {
    Tape_Blk tape(buffer, true);
    tape.media_name(name(930 + extra));
    tape.media_description("d");
    EXPECT_EQ(tape.media_name().empty(), extra == 1);
    EXPECT_EQ(tape.media_description().empty(), extra == 0);
    EXPECT_EQ(written(tape).size(), extra == 0 ? 1024U : 96U);
    Vol_Blk vol(buffer, true);
    EXPECT_EQ(vol.device_name(name(951 + extra)), extra == 0);
    EXPECT_EQ(vol.machine_name("h"), extra == 1);
    Dir_Blk dir(buffer, true);
    EXPECT_EQ(dir.directory_name(name(940 + extra)), extra == 0);
    EXPECT_EQ(written(dir).size(), extra == 0 ? 1024U : 84U);
    EXPECT_EQ(test_support::number(written(dir), 80, 4), extra == 0 ? 940 | 84 << 16 : 0U);
  }
  EXPECT_FALSE(Dir_Blk(buffer, true).directory_name(""));
  EXPECT_FALSE(File_Blk(buffer, true).file_name(""));
}

TEST(Limits, AFileNameGrowsItsBlock) {
  for (unsigned size : {936U, 937U, 2001U, 65444U, 65445U}) {
    Used_Buffer buffer;
    File_Blk blk(buffer, true);
    ASSERT_EQ(blk.file_name(std::string(size, 'n')), size <= 65444) << size;
    if (size > 65444) continue;
    const std::string bytes = written(blk);
    EXPECT_EQ(bytes.size(), (88 + size + 3) / 4 * 4);
    EXPECT_EQ(bytes.substr(88), std::string(size, 'n') + std::string(bytes.size() - 88 - size, 0));
  }
}

TEST(Limits, NameStreams) {
  const Ref_Ptr<Buffer> buffer = make_buffer();
  ASSERT_TRUE(buffer->expand(4));
  File_Name_Stream file(buffer);
  Path_Name_Stream path(buffer);
  EXPECT_FALSE(file.name(std::string(32768, 'n')));
  EXPECT_FALSE(path.name(std::string(32768, 'n')));
  EXPECT_EQ(buffer->capacity(), 4U);
  EXPECT_TRUE(file.name(std::string(32767, 'n')));
  EXPECT_TRUE(path.name(std::string(32767, 'n')));
  EXPECT_EQ(all_written(path).size(), 22U + 32767);
}

}  // namespace
