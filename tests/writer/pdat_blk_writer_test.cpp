#include "mtf/writer/pdat_blk_writer.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "mtf/writer/queue_blocks.h"
#include "platform/file.h"
#include "tests/support/writer_parts.h"

namespace {

constexpr std::size_t chunk = 0x100000;
const std::string name = "pre_action_data";

int write_from(test::Writer_Parts& parts, int handle) {
  MTF::PDat_Blk_Writer writer(handle, parts.event_handler);
  const auto cat = MTF::make_room<MTF::Cat_PDat_Blk>(name);
  EXPECT_TRUE(cat->set(0, name, 0, 0, 0, 0));
  return parts.write_block(writer, *cat);
}

TEST(PdatBlkWriter, DataBecomesFullChunksAndALastOne) {
  for (const std::size_t size : {std::size_t{0}, chunk - 1, chunk, 2 * chunk + 1}) {
    SCOPED_TRACE(size);
    test::Writer_Parts parts;
    const std::string data(size, 'x');
    test_support::write_file(parts.dir / "data", data);
    platform::File file;
    ASSERT_TRUE(file.open_local_read(parts.dir / "data"));
    ASSERT_EQ(write_from(parts, file.handle()), 0);
    const std::string& media = parts.writer.bytes;
    ASSERT_EQ(media.compare(512, 4, "PDAT"), 0);
    EXPECT_EQ(media.compare(512 + 88, name.size(), name), 0);
    test::Media_Bytes wanted;
    wanted.data = media.substr(0, 512 + test::get_le(media, 512 + 8, 2));
    std::size_t at = 0;
    for (; size - at >= chunk; at += chunk) wanted.stream("STAN", data.substr(at, chunk), 0, 2);
    wanted.stream("STAN", data.substr(at), at == size ? 8 : 0, 4);
    EXPECT_TRUE(media == wanted.data);
    EXPECT_EQ(parts.ctx.length, media.size());
    EXPECT_EQ(parts.ctx.file_id, 1u);
    EXPECT_EQ(parts.events->progress().done_count, size / chunk + 1);
    EXPECT_EQ(parts.events->progress().done_size, size);
  }
}

TEST(PdatBlkWriter, AHandleThatIsNoneFailsTheJob) {
  test::Writer_Parts parts;
  EXPECT_EQ(write_from(parts, -7), -1);
  EXPECT_EQ(errno, EBADF);
}

// What was read before stays behind in the buffer. The other end goes away with something unread.
TEST(PdatBlkWriter, AReadThatFailsInTheMiddleFailsTheJob) {
  int ends[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
  ASSERT_EQ(::write(ends[1], "some", 4), 4);
  ASSERT_EQ(::write(ends[0], "unread", 6), 6);
  ::close(ends[1]);
  test::Writer_Parts parts;
  EXPECT_EQ(write_from(parts, ends[0]), -1);
  EXPECT_EQ(errno, ECONNRESET);
  EXPECT_EQ(parts.writer.bytes.find("STAN"), std::string::npos);
  ::close(ends[0]);
}

}  // namespace
