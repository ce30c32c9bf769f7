#include "services/file_buf.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "platform/native_path.h"
#include "tests/support/temp_dir.h"

namespace {

TEST(Ifilebuf, ReadsOfEverySizeMayMix) {
  const test_support::Temp_Dir dir;
  std::string content(20000, '\0');
  for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 31 + i / 256);
  test_support::write_file(dir / "f", content);
  std::string path;
  ASSERT_TRUE(platform::system_path(dir / "f", path));
  MTF_FS::ifilebuf in(100);
  char data[9000];
  EXPECT_EQ(in.sgetn(data, 9000), -1);
  EXPECT_EQ(in.last_error(), EBADF);
  ASSERT_EQ(in.open(path.c_str(), 0, 7), 0);
  std::string got(1, static_cast<char>(in.sbumpc()));
  for (const std::streamsize piece : {9000, 7, 100, 4095, 4096, 9000, 9000, 9000}) {
    const std::streamsize n = in.sgetn(data, piece);
    ASSERT_GE(n, 0);
    got.append(data, static_cast<std::size_t>(n));
  }
  EXPECT_EQ(got, content);
  EXPECT_EQ(in.sgetc(), std::char_traits<char>::eof());
}

}  // namespace
