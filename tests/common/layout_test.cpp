// The bytes of blocks and streams, against bytes written down by hand.
#include <gtest/gtest.h>

#include "mtf/common/dir_blk.h"
#include "mtf/common/end_blks.h"
#include "mtf/common/file_blk.h"
#include "mtf/common/fnam_stream.h"
#include "mtf/common/metadata_stream.h"
#include "mtf/common/pad_stream.h"
#include "mtf/common/pdat_blk.h"
#include "mtf/common/pnam_stream.h"
#include "mtf/common/sset_blk.h"
#include "mtf/common/stat_record.h"
#include "mtf/common/tape_blk.h"
#include "mtf/common/vol_blk.h"
#include "tests/support/fault_channel.h"
#include "tests/support/hex.h"

namespace {

using namespace MTF;
using test_support::hex_of;
using test_support::Memory_Writer;
using test_support::sealed;

// 2000-02-29 12:34:56, 1F40BAC8B8 as a date; 1EC8420000 is the date of 0.
constexpr long long leap_day = 951827696;

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

// Expects a 52-byte header with attributes 0xA1A2A3A4, size 2^40 + 7, address 2^33 + 1 and block id
// 9, and `hex` behind it, in a block of type `Blk` that `fill` has filled.
template <class Blk, class Fill>
void expect_block(const char* letters, const char* first_event, const std::string& hex, Fill fill) {
  Used_Buffer buffer;
  Blk blk(buffer, true);
  blk.hdr().attributes(0xA1A2A3A4);
  blk.hdr().displayable_size((1ULL << 40) + 7);
  blk.hdr().format_logical_address((1ULL << 33) + 1);
  blk.hdr().control_block_id(9);
  fill(blk);
  const std::string header = hex_of(letters) + "A4A3A2A1" + first_event +
                             "0E 00 0700000000010000 0100000002000000 0000000000000000"
                             "09000000 0000000000000000 01 00 0000";
  EXPECT_EQ(hex_of(written(blk)), sealed(header + hex, 50));
}

TEST(Layout, Tape) {
  expect_block<Tape_Blk>("TAPE", "6400",
                         "44332211 03000000 6655 0000 0010 0100 01005E00 02005F00 00000000"
                         "03006100 0002 0000 1F40BAC8B8 01 4E 4445 534F46",
                         [](Tape_Blk& blk) {
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
                         });
}

TEST(Layout, SetVolumeAndDirectory) {
  expect_block<SSet_Blk>("SSET", "6400",
                         "06000000 0000 0200 0000 0201 00000000 00000000 00000000 00000000"
                         "0500000001000000 1F40BAC8B8 03 04 F8 01 02 0000",
                         [](SSet_Blk& blk) {
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
                         });
  expect_block<Vol_Blk>("VOLB", "5000",
                        "04000000 02004900 00000000 05004B00 1F40BAC8B8 433A 686F737431",
                        [](Vol_Blk& blk) {
                          blk.volb_attributes(4);
                          EXPECT_TRUE(blk.device_name("C:"));
                          EXPECT_TRUE(blk.machine_name("host1"));
                          blk.media_write_date(leap_day);
                        });
  expect_block<Dir_Blk>("DIRB", "5800",
                        "00090000 1EC8420000 1F40BAC8B8 1EC8420000 1F40BAC8B8"
                        "04030201 02005400 6100 0000",
                        [](Dir_Blk& blk) {
                          blk.dirb_attributes(0x900);
                          blk.last_modification_date(0);
                          blk.creation_date(leap_day);
                          blk.backup_date(0);
                          blk.last_access_date(leap_day);
                          blk.directory_id(0x01020304);
                          EXPECT_TRUE(blk.directory_name(std::string("a\0", 2)));
                        });
}

TEST(Layout, FileAndItsLike) {
  const auto fill = [](auto& blk) {
    blk.file_attributes(0x800);
    blk.last_modification_date(leap_day);
    blk.creation_date(0);
    blk.backup_date(leap_day);
    blk.last_access_date(0);
    blk.directory_id(0x01020304);
    blk.file_id(0x05060708);
    EXPECT_TRUE(blk.file_name("f"));
  };
  const char* const hex =
      "00080000 1F40BAC8B8 1EC8420000 1F40BAC8B8 1EC8420000 04030201 08070605 01005800 66 000000";
  expect_block<File_Blk>("FILE", "5C00", hex, fill);
  expect_block<PDat_Blk>("PDAT", "5C00", hex, fill);
  expect_block<HLnk_Blk>("HLNK", "5C00", hex, fill);
  expect_block<SLnk_Blk>("KNLS", "5C00", hex, fill);
  expect_block<Devb_Blk>("DEVB", "5C00", hex, fill);
}

TEST(Layout, Ends) {
  expect_block<CFil_Blk>("CFIL", "4C00", "00000200 0000000000000000 0200000001000000 0201 0000",
                         [](CFil_Blk& blk) {
                           blk.cfil_attributes(0x20000);
                           blk.stream_offset((1ULL << 32) + 2);
                           blk.stream_number(0x0102);
                         });
  expect_block<ESet_Blk>("ESET", "5800",
                         "06000000 FFFFFFFF 0100000000000000 0200000000000000 0300 0400"
                         "1F40BAC8B8 000000",
                         [](ESet_Blk& blk) {
                           blk.eset_attributes(6);
                           blk.corrupt_file_count(0xFFFFFFFF);
                           blk.fdd_pba(1);
                           blk.sm_pba(2);
                           blk.fdd_media_sequence_number(3);
                           blk.data_set_number(4);
                           blk.media_write_date(leap_day);
                         });
  expect_block<EOTM_Blk>("EOTM", "3C00", "0300000001000000",
                         [](EOTM_Blk& blk) { blk.last_eset_pba((1ULL << 32) + 3); });
}

// What has been in the buffer before leaves no trace.
TEST(Layout, BlocksWithoutStrings) {
  Used_Buffer buffer;
  EXPECT_EQ(written(*std::make_unique<Tape_Blk>(buffer, true)).size(), 96U);
  EXPECT_EQ(written(*std::make_unique<Vol_Blk>(buffer, true)).size(), 76U);
  EXPECT_EQ(written(*std::make_unique<File_Blk>(buffer, true)).size(), 88U);
  // A view changes nothing.
  EXPECT_EQ(Dir_Blk(buffer, false).hdr().type(), 0x454C4946U);
  Memory_Writer failing({test_support::Op::write, 1});
  EXPECT_EQ(File_Blk(buffer, true).write(failing), IWriter::failed);
}

std::string all_written(Stream& stream) {
  Memory_Writer writer;
  const unsigned long long size = stream.write(writer);
  EXPECT_EQ(size, writer.bytes.size());
  return writer.bytes;
}

TEST(Layout, Streams) {
  const Ref_Ptr<Buffer> buffer(new Used_Buffer);
  const auto expect = [](Stream& stream, const std::string& letters, const std::string& rest) {
    EXPECT_EQ(hex_of(all_written(stream)), sealed(hex_of(letters) + rest, 20));
  };
  Pad_Stream pad(buffer);
  EXPECT_TRUE(pad.length(3));
  expect(pad, "SPAD", "0000 0000 0300000000000000 0000 0000 0000 000000");
  File_Name_Stream file(buffer);
  EXPECT_TRUE(file.name("ab"));
  expect(file, "FNAM", "0000 0000 0200000000000000 0000 0000 0000 6162");
  Path_Name_Stream path(buffer);
  EXPECT_TRUE(path.name(std::string("a\0", 2)));
  expect(path, "PNAM", "0000 0000 0200000000000000 0000 0000 0000 6100");
  Metadata_Stream meta(buffer);
  EXPECT_TRUE(meta.set_data("{}", 2));
  meta.hdr().file_system_attributes(0x0102);
  meta.hdr().media_format_attributes(0x0304);
  meta.hdr().data_compression_algorithm(0x0506);
  expect(meta, "META", "0201 0403 0200000000000000 0000 0605 0000 7B7D");
  Stat_Info_Setter info(*buffer);
  info.gid(~0ULL);
  info.uid(1);
  info.mode(0x81A4);
  EXPECT_EQ(hex_of(std::string(buffer->data(), 24)),
            "FFFFFFFFFFFFFFFF0100000000000000A481000000000000");
}

// A name goes into a block up to byte 1024 of its image; that of a file up to its last one.
TEST(Limits, NamesInsideABlock) {
  Used_Buffer buffer;
  const auto name = [](unsigned size) { return std::string(size, 'n'); };
  for (unsigned extra : {0U, 1U}) {
    Tape_Blk tape(buffer, true);
    tape.media_name(name(930 + extra));
    tape.media_description("d");
    EXPECT_EQ(tape.media_name().empty(), extra == 1);
    EXPECT_EQ(tape.media_description().empty(), extra == 0);
    Vol_Blk vol(buffer, true);
    EXPECT_EQ(vol.device_name(name(951 + extra)), extra == 0);
    EXPECT_EQ(vol.machine_name("h"), extra == 1);
    Dir_Blk dir(buffer, true);
    EXPECT_EQ(dir.directory_name(name(940 + extra)), extra == 0);
    EXPECT_EQ(written(dir).size(), extra == 0 ? 1024U : 84U);
    EXPECT_EQ(File_Blk(buffer, true).file_name(name(65444 + extra)), extra == 0);
  }
  EXPECT_FALSE(Dir_Blk(buffer, true).directory_name(""));
  EXPECT_FALSE(File_Blk(buffer, true).file_name(""));
  File_Blk file(buffer, true);
  ASSERT_TRUE(file.file_name(name(2001)));
  EXPECT_EQ(written(file).substr(88), name(2001) + std::string(3, '\0'));
}

TEST(Limits, NameStreams) {
  const Ref_Ptr<Buffer> buffer = make_buffer();
  File_Name_Stream file(buffer);
  Path_Name_Stream path(buffer);
  for (unsigned size : {32767U, 32768U}) {
    EXPECT_EQ(file.name(std::string(size, 'n')), size == 32767);
    EXPECT_EQ(path.name(std::string(size, 'n')), size == 32767);
  }
}

}  // namespace
