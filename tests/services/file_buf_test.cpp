#include "services/file_buf.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "platform/native_path.h"
#include "tests/support/temp_dir.h"

namespace {

using test_support::read_file;
using test_support::Temp_Dir;
using test_support::write_file;

std::string pattern(std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>(i * 31 + i / 256);
  return text;
}

TEST(File_Buf, ReadsOfEverySizeMayMix) {
  const Temp_Dir dir;
  const std::string content = pattern(20000);
  write_file(dir / "f", content);
  std::string path;
  ASSERT_TRUE(platform::system_path(dir / "f", path));
  MTF_FS::ifilebuf in(100);
  char data[9000];
  EXPECT_EQ(in.sgetn(data, 9000), -1);
  EXPECT_EQ(in.last_error(), EBADF);
  ASSERT_EQ(in.open(path, 0, 7), 0);
  std::string got(1, static_cast<char>(in.sbumpc()));
  for (const std::streamsize piece : {9000, 7, 100, 4095, 4096, 9000, 9000, 9000}) {
    const std::streamsize n = in.sgetn(data, piece);
    ASSERT_GE(n, 0);
    got.append(data, static_cast<std::size_t>(n));
  }
  EXPECT_EQ(got, content);
  EXPECT_EQ(in.sgetc(), std::char_traits<char>::eof());
}

TEST(File_Buf, WritesWhatItIsGiven) {
  const Temp_Dir dir;
  const std::string content = pattern(1000), path = dir / "f";
  write_file(path, std::string(5000, 'o'));
  MTF_FS::ofilebuf out(64);
  EXPECT_EQ(out.sputn("x", 1), 0);
  ASSERT_EQ(out.open(path.c_str(), 0, 7), 0);
  std::size_t at = 0;
  for (const std::size_t piece : {1, 63, 64, 65, 10, 200, 30, 567}) {
    EXPECT_EQ(out.sputn(&content[at], static_cast<std::streamsize>(piece)),
              static_cast<std::streamsize>(piece));
    at += piece;
  }
  out.sputc('!');
  EXPECT_EQ(out.seek(2, 0), 2);
  EXPECT_EQ(read_file(path), content + "!") << "a seek writes out what is buffered";
  out.sputn("YZ", 2);
  EXPECT_EQ(out.seek(0, 2), 1001);
  EXPECT_EQ(out.seek(-1, 0), -1);
  EXPECT_EQ(out.close(), 0);
  EXPECT_EQ(out.seek(0, 0), -1);
  EXPECT_EQ(read_file(path), content.substr(0, 2) + "YZ" + content.substr(4) + "!");
}

}  // namespace
