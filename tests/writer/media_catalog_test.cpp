// The catalog that stands on a media, byte by byte.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>

#include "mtf/writer/mbc_writer_factory.h"
#include "mtf/writer/tfdd_stream.h"
#include "mtf/writer/tsmp_stream.h"
#include "mtf/writer/type1_mbc_writer.h"
#include "tests/support/fault_channel.h"
#include "tests/support/media_bytes.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace MTF;
using test::Bytes;
using test_support::Memory_Writer;

constexpr long long noon = 1582979696;  // 2020-02-29 12:34:56
const std::string noon_bytes = "\x1F\x90\xBA\xC8\xB8";

template <class Blk>
struct Owned {
  Buffer buffer{8};
  Blk blk{buffer, true};
  Blk* operator->() { return &blk; }
};

struct Media_Catalog : testing::Test {
  Media_Catalog() {
    opt.job_tmp_dir = dir.path();
    opt.minor_resource_id = "job";
    tape->media_family_id(0x11223344);
    tape->media_sequence_number(7);
    tape->password_encryption_algorithm(3);
    sset->hdr().attributes(0x10000);
    sset->hdr().format_logical_address(16);
    sset->sset_attributes(4);
    sset->data_set_number(1);
    sset->physical_block_address(2);
    sset->media_write_date(noon);
    sset->mtf_minor_version(1);
    sset->media_catalog_version(2);
    vol->hdr().format_logical_address(17);
    vol->hdr().attributes(2);
    vol->volb_attributes(4);
    vol->media_write_date(noon);
    vol->device_name("C:");
    vol->machine_name("host");
    dirb->hdr().format_logical_address(18);
    dirb->last_modification_date(noon);
    dirb->backup_date(noon);
    eset->hdr().format_logical_address(32);
    eset->eset_attributes(4);
    eset->data_set_number(1);
    eset.buffer.expand(4096);
    eset->hdr().offset_to_first_event(4096);
  }

  void fill(File_Blk& blk, unsigned long long address, unsigned long long size) {
    blk.hdr().format_logical_address(address);
    blk.hdr().displayable_size(size);
    blk.file_attributes(0x800);
    blk.last_modification_date(noon);
    blk.creation_date(noon);
  }

  // One volume, one directory and two files, up to the first ESET block.
  bool build(IMBC_Writer& catalog) {
    fill(file.blk, 19, 5);
    fill(empty.blk, 20, 0);
    return catalog.open() && catalog.add_tape_blk(tape.blk) && catalog.add_sset_blk(sset.blk) &&
           catalog.add_vol_blk(vol.blk) &&
           catalog.add_dir_blk(dirb.blk, std::string("home\0", 5)) &&
           catalog.add_file_blk(file.blk, "a.txt") && catalog.add_file_blk(empty.blk, "b") &&
           catalog.add_eset_blk(eset.blk);
  }

  test_support::Temp_Dir dir;
  Backup_Option opt;
  Backup_Context ctx{12, 9};
  Owned<Tape_Blk> tape;
  Owned<SSet_Blk> sset;
  Owned<Vol_Blk> vol;
  Owned<Dir_Blk> dirb;
  Owned<File_Blk> file, empty;
  Owned<ESet_Blk> eset;
};

std::string stream_header(const std::string& id, unsigned long long length) {
  Bytes bytes;
  bytes.raw(id).zeros(4).le(length, 8).zeros(4);
  return bytes.le(test::xor16(bytes.data, 0, 20), 2).data;
}

Bytes fdd_header(unsigned length, const std::string& type, unsigned attributes, unsigned address,
                 unsigned size) {
  Bytes bytes;
  bytes.le(length, 2).raw(type).le(7, 2).le(attributes, 4).le(address, 8).le(size, 8).zeros(4);
  bytes.le(14, 1).le(0, 1).le(1, 1).le(0, 1);
  return bytes;
}

std::string volume_entry() {
  Bytes bytes = fdd_header(67, "VOLB", 2, 17, 0);
  bytes.le(4, 4).le(2, 2).le(61, 2).zeros(4).le(4, 2).le(63, 2).zeros(4).raw(noon_bytes);
  return bytes.raw("C:host").data;
}

std::string file_entry(const std::string& name, unsigned address, unsigned size) {
  Bytes bytes = fdd_header(68 + name.size(), "FILE", 0, address, size);
  bytes.raw(noon_bytes + noon_bytes).zeros(10).le(0x800, 4);
  return bytes.le(name.size(), 2).le(68, 2).zeros(4).raw(name).data;
}

TEST_F(Media_Catalog, Stands_byte_for_byte_behind_the_ESET_block) {
  Type1_MBC_Writer catalog(&opt, &ctx);
  ASSERT_TRUE(build(catalog));
  ctx.set_length(0x6000);
  Memory_Writer writer;
  ASSERT_TRUE(catalog.write(writer));
  EXPECT_EQ(ctx.length, 0x6000 + writer.bytes.size());

  Bytes dir_entry = fdd_header(73, "DIRB", 0, 18, 0);
  dir_entry.raw(noon_bytes).zeros(5).raw(noon_bytes).zeros(5).zeros(4).le(5, 2).le(68, 2).zeros(4);
  dir_entry.raw(std::string("home\0", 5));
  std::string entries =
      volume_entry() + dir_entry.data + file_entry("a.txt", 19, 5) + file_entry("b", 20, 0);
  const std::size_t used = 22 + entries.size();
  entries += Bytes().le(36 + 4096 - used, 2).raw("FEND").zeros(30).data;
  std::string wanted = stream_header("TFDD", entries.size()) + entries;
  wanted.resize(4096);

  Bytes map;
  map.le(0x11223344, 4).le(1, 2).zeros(2);
  map.le(91, 2).le(7, 2).le(0x10000, 4).le(4, 4).le(2, 8).le(6, 8).le(0, 2).le(1, 2).le(16, 8);
  map.le(1, 4).le(2, 4).le(0, 4).le(5, 8).le(1, 2).le(3, 2).zeros(16).raw(noon_bytes);
  map.le(0, 1).le(14, 1).le(0, 1).le(1, 1).le(1, 1).le(2, 1).raw(volume_entry());
  wanted += stream_header("TSMP", map.data.size()) + map.data;
  wanted.resize((wanted.size() + 3) / 4 * 4);
  wanted += stream_header("SPAD", 8192 - wanted.size() - 22);
  wanted.resize(8192);

  std::string copy(eset.blk.image(), 4096);
  test::set_le(copy, 60, 6, 8);
  test::set_le(copy, 68, 7, 8);
  test::set_le(copy, 50, test::xor16(copy, 0, 50), 2);
  EXPECT_TRUE(writer.bytes == wanted + copy)
      << "lengths " << writer.bytes.size() << " and " << wanted.size() + copy.size();
}

TEST_F(Media_Catalog, No_other_type_and_no_file_that_cannot_be_made) {
  MBC_Writer_Factory factory(&opt, &ctx);
  EXPECT_EQ(factory.create(0), nullptr);
  EXPECT_EQ(factory.create(2), nullptr);
  test_support::write_file(dir / "a", "");
  opt.job_tmp_dir = dir / "a/file/in/the/way";
  EXPECT_FALSE(Type1_MBC_Writer(&opt, &ctx).open());
}

TEST_F(Media_Catalog, FEND_reaches_to_the_next_physical_block) {
  const std::pair<unsigned, unsigned> cases[] = {
      {4095, 37}, {4096, 36}, {4097, 36 + 4095}, {100, 4032}};
  for (const auto& [end, length] : cases) {
    TFDD_Stream stream(&opt);
    ASSERT_TRUE(stream.open(dir / "tfdd"));
    const std::string entry(end - 22, 'x');
    ASSERT_TRUE(stream.append(entry.data(), static_cast<unsigned short>(entry.size())));
    ASSERT_TRUE(stream.end());
    Memory_Writer writer;
    EXPECT_EQ(stream.write(writer), end + 36);
    EXPECT_EQ(writer.bytes, stream_header("TFDD", end + 14) + entry +
                                Bytes().le(length, 2).raw("FEND").zeros(30).data);
  }
}

TEST_F(Media_Catalog, Long_names_are_whole_and_no_name_is_refused) {
  TFDD_Stream stream(&opt);
  ASSERT_TRUE(stream.open(dir / "tfdd"));
  const std::string longest(65535 - 68, 'n');
  dirb->hdr().attributes(attr_name_in_stream);
  EXPECT_FALSE(stream.add_dir_blk(dirb.blk, ""));
  EXPECT_FALSE(stream.add_dir_blk(dirb.blk, longest + "n"));
  EXPECT_FALSE(stream.add_vol_blk(Owned<Vol_Blk>().blk));
  EXPECT_TRUE(stream.add_dir_blk(dirb.blk, longest));
  EXPECT_FALSE(stream.append(nullptr, 1));
  ASSERT_TRUE(stream.end());
  Memory_Writer writer;
  ASSERT_EQ(stream.write(writer), 22 + 65535 + 36);
  EXPECT_EQ(test::get_le(writer.bytes, 22, 2), 65535u);
  EXPECT_EQ(test::get_le(writer.bytes, 22 + 8, 4), 0x20000u);
  EXPECT_EQ(writer.bytes.substr(22 + 68, longest.size()), longest);
}

// A limit on the size of files stands for a full disk. What is refused isn't counted.
TEST_F(Media_Catalog, The_set_map_grows_as_far_as_there_is_room) {
  ::signal(SIGXFSZ, SIG_IGN);
  rlimit limit;
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
  for (const rlim_t room : {rlim_t{1 << 20}, limit.rlim_cur}) {
    TSMP_Stream stream(&opt);
    ASSERT_TRUE(stream.open(dir / "tsmp"));
    ASSERT_TRUE(stream.add_tape_blk(tape.blk) && stream.add_sset_blk(sset.blk));
    const rlimit now{room, limit.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &now), 0);
    unsigned volumes = 0;
    while (volumes < 40000 && stream.add_vol_blk(vol.blk)) ++volumes;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    EXPECT_EQ(volumes == 40000, room == limit.rlim_cur) << volumes;
    ASSERT_TRUE(stream.add_cfil_blk(Owned<CFil_Blk>().blk));
    ASSERT_TRUE(stream.set_fdd_pba(9));
    Memory_Writer writer;
    const std::size_t size = 22 + 8 + 91 + volumes * 67;
    ASSERT_EQ(stream.write(writer), static_cast<long long>(size));
    EXPECT_EQ(writer.bytes.substr(0, 22), stream_header("TSMP", size - 22));
    EXPECT_EQ(test::get_le(writer.bytes, 22, 4), 0x11223344u);
    EXPECT_EQ(test::get_le(writer.bytes, 30 + 20, 8), 9u);
    EXPECT_EQ(test::get_le(writer.bytes, 30 + 48, 4), 1u);
    EXPECT_EQ(test::get_le(writer.bytes, 30 + 60, 2), volumes);
    EXPECT_EQ(writer.bytes.substr(size - 67), volume_entry());
  }
}

}  // namespace
