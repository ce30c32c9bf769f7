#include "mtf/writer/file_blk_writer_win.h"

#include <gtest/gtest.h>

#include "mtf/writer/dir_blk_writer_win.h"
#include "platform/native_path.h"
#include "tests/support/writer_parts.h"

namespace {

using test::Bytes;
using test::get_le;

constexpr int io_device = 1117;

std::string record(unsigned int id, const std::string& data) {
  return Bytes().le(id, 4).le(0, 4).le(data.size(), 8).le(0, 4).raw(data).data;
}

// Writes the block of `name` in the directory of the parts, whose records are given.
template <class Writer, class Cat>
int write_block(test::Writer_Parts& parts, const std::string& name, const std::string& records,
                std::size_t end, int error) {
  std::string system;
  EXPECT_TRUE(platform::system_path(parts.dir.path(), system));
  parts.ctx.cur_vol = "/";
  parts.ctx.cur_dir = system.substr(2) + '\\';
  Writer writer(parts.event_handler, std::make_unique<test::Script>(records, end, error));
  MTF::Catalog_Writer catalog(parts.option);
  EXPECT_TRUE(catalog.open(0));
  EXPECT_TRUE(writer.init(&parts.option, &parts.ctx, parts.buffer, &parts.media_catalog, &catalog));
  std::string bytes(Cat::buffer_need(name.size()), '\0');
  Cat cat(&bytes[0], static_cast<unsigned int>(bytes.size()));
  if constexpr (std::is_same_v<Cat, MTF::Cat_Dir_Blk>) {
    EXPECT_TRUE(cat.set(0, name));
  } else {
    EXPECT_TRUE(cat.set(0, name, 0, 0, 0, 0));
  }
  EXPECT_TRUE(writer.reset(&bytes[0], static_cast<unsigned int>(bytes.size())));
  return writer.write(parts.writer);
}

TEST(FileBlkWriterWin, AReadErrorInTheMiddleLeavesACorruptFileAndTheJob) {
  const std::string records = record(3, "security") + record(2, "attribute!") +
                              record(1, std::string(200000, 'x')) + record(4, "");
  const struct {
    std::size_t end;
    unsigned int attributes;
    unsigned long long offset;
    unsigned int stream;
  } cases[] = {
      {10, 0x10000, 0, 1},
      {20 + 8, 0x20000, 0, 2},
      {20 + 8 + 20 + 10 + 20 + 150000, 0x20000, 150000, 3},
      {records.size() - 20, 0x20000, 0, 4},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.end);
    test::Writer_Parts parts;
    test_support::write_file(parts.dir / "file", "whatever");
    const auto run = [&] {
      return write_block<MTF::File_Blk_Writer_Win, MTF::Cat_File_Blk>(parts, "file", records, c.end,
                                                                      io_device);
    };
    EXPECT_EQ(run(), 1);
    EXPECT_EQ(parts.ctx.corrupt_file_count, 1u);
    ASSERT_EQ(parts.events->seen.size(), 1u);
    EXPECT_EQ(parts.events->seen[0].first, 0x100000B);
    EXPECT_EQ(parts.events->seen[0].second["type"], "file");
    const std::string& media = parts.writer.data;
    const std::size_t cfil = media.rfind("CFIL");
    ASSERT_NE(cfil, std::string::npos);
    EXPECT_EQ(cfil % 512, 0u);
    EXPECT_EQ(get_le(media, cfil + 52, 4), c.attributes);
    EXPECT_EQ(get_le(media, cfil + 64, 8), c.offset);
    EXPECT_EQ(get_le(media, cfil + 72, 2), c.stream);
    EXPECT_EQ(parts.ctx.length, media.size());
  }
}

TEST(FileBlkWriterWin, AnUnknownRecordLeavesTheFileWithoutACorruptMark) {
  test::Writer_Parts parts;
  test_support::write_file(parts.dir / "file", "whatever");
  const std::string records = record(1, "content") + record(5, "link") + record(1, "more");
  EXPECT_EQ((write_block<MTF::File_Blk_Writer_Win, MTF::Cat_File_Blk>(parts, "file", records,
                                                                      records.size(), 0)),
            1);
  EXPECT_NE(parts.writer.data.find("content"), std::string::npos);
  EXPECT_EQ(parts.writer.data.find("CFIL"), std::string::npos);
  EXPECT_TRUE(parts.events->seen.empty());
}

TEST(FileBlkWriterWin, AFullMediaSaysWhy) {
  test::Writer_Parts parts;
  parts.writer.room = 2000;
  test_support::write_file(parts.dir / "file", "whatever");
  const std::string records = record(1, std::string(5000, 'x'));
  EXPECT_EQ((write_block<MTF::File_Blk_Writer_Win, MTF::Cat_File_Blk>(parts, "file", records,
                                                                      records.size(), 0)),
            -1);
  EXPECT_EQ(parts.ctx.err_code, 9u);
  EXPECT_EQ(parts.ctx.err_msg, "full");
}

TEST(DirBlkWriterWin, DamagedOrUnknownRecordsLeaveTheDirectory) {
  const std::string records = record(3, "security") + record(2, "attribute") + record(5, "link");
  for (const std::size_t end : {std::size_t{5}, std::size_t{20 + 8 + 25}, records.size()}) {
    test::Writer_Parts parts;
    std::string system;
    ASSERT_TRUE(platform::system_path(parts.dir.path(), system));
    const std::string name = test::nul_separated(system.substr(2) + '\\');
    EXPECT_EQ((write_block<MTF::Dir_Blk_Writer_Win, MTF::Cat_Dir_Blk>(parts, name, records, end,
                                                                      io_device)),
              0);
    const std::string& media = parts.writer.data;
    EXPECT_EQ(media.find("security") != std::string::npos, end > 28);
    EXPECT_EQ(media.find("attribute") != std::string::npos, end == records.size());
    EXPECT_EQ(media.find("CFIL"), std::string::npos);
  }
}

}  // namespace
