#include "mtf/writer/pdat_blk_writer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "tests/support/writer_parts.h"

namespace {

constexpr std::size_t chunk = 0x100000;
const std::string name = "pre_action_data";

int write_from(test::Writer_Parts& parts, int handle) {
  MTF::PDat_Blk_Writer writer(handle, parts.event_handler);
  MTF::Catalog_Writer catalog(parts.option);
  EXPECT_TRUE(catalog.open(0));
  EXPECT_TRUE(writer.init(&parts.option, &parts.ctx, parts.buffer, &parts.media_catalog, &catalog));
  std::string bytes(MTF::Cat_PDat_Blk::buffer_need(name.size()), '\0');
  MTF::Cat_PDat_Blk cat(&bytes[0], static_cast<unsigned int>(bytes.size()));
  EXPECT_TRUE(cat.set(0, name, 0, 0, 0, 0));
  EXPECT_TRUE(writer.reset(&bytes[0], static_cast<unsigned int>(bytes.size())));
  return writer.write(parts.writer);
}

// Writes through a pipe that gets `data` in pieces of 1, 2, 3 ... bytes and more.
int write_through_pipe(test::Writer_Parts& parts, const std::string& data) {
  int ends[2];
  EXPECT_EQ(::pipe(ends), 0);
  std::thread feeder([&] {
    std::size_t piece = 1;
    for (std::size_t at = 0; at < data.size(); piece = piece * 2 + 1) {
      const std::size_t size = std::min({piece % 50021 + 1, data.size() - at});
      const ssize_t n = ::write(ends[1], data.data() + at, size);
      if (n <= 0) break;
      at += static_cast<std::size_t>(n);
    }
    ::close(ends[1]);
  });
  const int result = write_from(parts, ends[0]);
  feeder.join();
  ::close(ends[0]);
  return result;
}

std::string pattern(std::size_t size) {
  std::string out(size, '\0');
  for (std::size_t i = 0; i < size; ++i) out[i] = static_cast<char>(i * 31 + i / 251);
  return out;
}

TEST(PdatBlkWriter, DataBecomesFullChunksAndALastOne) {
  for (const std::size_t size :
       {std::size_t{0}, std::size_t{1}, chunk - 1, chunk, chunk + 1, 3 * chunk, 2 * chunk + 4711}) {
    SCOPED_TRACE(size);
    test::Writer_Parts parts;
    const std::string data = pattern(size);
    ASSERT_EQ(write_through_pipe(parts, data), 0);
    const std::string& media = parts.writer.data;
    ASSERT_EQ(media.compare(512, 4, "PDAT"), 0);
    EXPECT_EQ(media.compare(512 + 88, name.size(), name), 0);
    test::Media_Bytes wanted;
    const std::size_t begin = 512 + test::get_le(media, 512 + 8, 2);
    wanted.data.resize(begin);
    std::size_t at = 0;
    for (; data.size() - at >= chunk; at += chunk) {
      wanted.stream("STAN", data.substr(at, chunk), 0, 2);
    }
    wanted.stream("STAN", data.substr(at), at == data.size() ? 8 : 0, 4);
    EXPECT_TRUE(media.substr(begin) == wanted.data.substr(begin));
    EXPECT_EQ(parts.ctx.length, media.size());
    EXPECT_EQ(parts.ctx.file_id, 1u);
    EXPECT_EQ(parts.events->progress().done_count, size / chunk + 1);
    EXPECT_EQ(parts.events->progress().done_size, size);
  }
}

TEST(PdatBlkWriter, AReadThatFailsFailsTheJob) {
  test::Writer_Parts parts;
  const int directory = ::open(parts.dir.path().c_str(), O_RDONLY);
  EXPECT_EQ(write_from(parts, directory), -1);
  EXPECT_EQ(errno, EISDIR);
  ::close(directory);
  // In the middle: what was read before stays behind in the buffer. The other end goes away with
  // something unread.
  int ends[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
  ASSERT_EQ(::write(ends[1], "some", 4), 4);
  ASSERT_EQ(::write(ends[0], "unread", 6), 6);
  ::close(ends[1]);
  test::Writer_Parts more;
  EXPECT_EQ(write_from(more, ends[0]), -1);
  EXPECT_EQ(errno, ECONNRESET);
  EXPECT_EQ(more.writer.data.find("STAN"), std::string::npos);
  ::close(ends[0]);
}

// Whoever is to write may be silent for good, and may have set the pipe up not to block.
TEST(PdatBlkWriter, ASilentPipeDoesNotHoldUpACancel) {
  for (const int flags : {0, O_NONBLOCK}) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, flags), 0);
    ASSERT_EQ(::write(ends[1], "some", 4), 4);
    test::Writer_Parts parts;
    std::thread host([&] {
      int unread = 1;
      while (::ioctl(ends[0], FIONREAD, &unread) == 0 && unread != 0) ::usleep(1000);
      parts.events->set_canceling();
    });
    EXPECT_EQ(write_from(parts, ends[0]), -1);
    host.join();
    ::close(ends[0]);
    ::close(ends[1]);
  }
}

TEST(PdatBlkWriter, AFullMediaOrACancelFailsTheJob) {
  test::Writer_Parts whole;
  ASSERT_EQ(write_through_pipe(whole, pattern(500)), 0);
  for (std::size_t room = 0; room < whole.writer.data.size(); room += 9) {
    test::Writer_Parts full;
    full.writer.room = room;
    EXPECT_EQ(write_through_pipe(full, pattern(500)), -1) << room;
    EXPECT_EQ(full.ctx.err_code, 9u) << room;
  }
  test::Writer_Parts canceled;
  canceled.events->set_canceling();
  EXPECT_EQ(write_through_pipe(canceled, pattern(500)), -1);
}

}  // namespace
