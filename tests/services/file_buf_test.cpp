#include "services/file_buf.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "platform/native_path.h"
#include "tests/support/temp_dir.h"

namespace {

using MTF_FS::ifilebuf;
using MTF_FS::ofilebuf;
using test_support::read_file;
using test_support::Temp_Dir;

std::string system_form(const std::string& native) {
  std::string out;
  EXPECT_TRUE(platform::system_path(native, out));
  return out;
}

std::string pattern(std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>(i * 31 + i / 256);
  return text;
}

TEST(Ifilebuf, GivesTheBytesInPiecesOfAnySize) {
  Temp_Dir dir;
  const std::string content = pattern(20000);
  test_support::write_file(dir / "f", content);
  const std::string path = system_form(dir / "f");
  ifilebuf in(100);
  for (const std::streamsize piece : {7, 100, 4095, 4096, 30000}) {
    ASSERT_EQ(in.open(path, 0x2000080, 7), 0);
    EXPECT_EQ(in.stat().st_size, 20000);
    std::string got(content.size() + 30000, '?');
    std::size_t size = 0;
    while (const std::streamsize n = in.sgetn(&got[size], piece)) {
      ASSERT_GT(n, 0);
      size += static_cast<std::size_t>(n);
    }
    got.resize(size);
    EXPECT_EQ(got, content) << piece;
    EXPECT_EQ(in.sgetc(), std::char_traits<char>::eof());
  }
}

TEST(Ifilebuf, SmallAndLargeReadsMayMix) {
  Temp_Dir dir;
  const std::string content = pattern(9000);
  test_support::write_file(dir / "f", content);
  ifilebuf in(64);
  ASSERT_EQ(in.open(system_form(dir / "f").c_str(), 0, 7), 0);
  char data[9000];
  EXPECT_EQ(in.sbumpc(), static_cast<unsigned char>(content[0]));
  EXPECT_EQ(in.sgetn(data, 9000), 63);  // what is at hand
  EXPECT_EQ(in.sgetn(data, 9000), 9000 - 64);
  EXPECT_EQ(std::string(data, 9000 - 64), content.substr(64));
}

TEST(Ifilebuf, FailuresAreTold) {
  Temp_Dir dir;
  ifilebuf in(64);
  char data[8192];
  EXPECT_EQ(in.sgetn(data, 8192), -1);
  EXPECT_EQ(in.last_error(), EBADF);
  EXPECT_NE(in.open(nullptr, 0, 7), 0);
  EXPECT_NE(in.open(system_form(dir.path()), 0, 7), 0);
  EXPECT_EQ(errno, EINVAL);
  test_support::write_file(dir / "f", "x");
  ASSERT_EQ(in.open(system_form(dir / "f"), 0, 7), 0);
  EXPECT_EQ(in.last_error(), 0);
  EXPECT_EQ(in.sgetn(data, 8192), 1);
}

TEST(Ofilebuf, WritesWhatItIsGiven) {
  Temp_Dir dir;
  const std::string content = pattern(1000), path = dir / "f";
  test_support::write_file(path, std::string(5000, 'o'));
  ofilebuf out(64);
  EXPECT_EQ(out.sputn("x", 1), 0);
  ASSERT_EQ(out.open(path.c_str(), 0x2000381, 7), 0);
  std::size_t at = 0;
  for (const std::size_t piece : {1, 63, 64, 65, 10, 200, 30, 567}) {
    EXPECT_EQ(out.sputn(&content[at], static_cast<std::streamsize>(piece)),
              static_cast<std::streamsize>(piece));
    at += piece;
  }
  ASSERT_EQ(at, content.size());
  out.sputc('!');
  EXPECT_EQ(out.seek(2, 0), 2);
  EXPECT_EQ(read_file(path), content + "!") << "a seek writes out what is buffered";
  out.sputn("YZ", 2);
  EXPECT_EQ(out.seek(0, 2), 1001);
  EXPECT_EQ(out.seek(-1, 0), -1);
  EXPECT_EQ(out.seek(0, 9), -1);
  EXPECT_EQ(out.close(), 0);
  EXPECT_EQ(out.close(), 0);
  EXPECT_EQ(out.seek(0, 0), -1);
  EXPECT_EQ(read_file(path), content.substr(0, 2) + "YZ" + content.substr(4) + "!");
}

TEST(Ofilebuf, AnOpenFileOfItsOwnIsForTheUserAlone) {
  Temp_Dir dir;
  ofilebuf out(64);
  EXPECT_NE(out.open((dir / "no/f").c_str(), 0x2000381, 7), 0);
  ASSERT_EQ(out.open((dir / "f").c_str(), 0x2000381, 7), 0);
  struct stat st;
  ASSERT_EQ(::stat((dir / "f").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
}

// Files may have 100 bytes; returns the step that went wrong, or 0.
int write_past_the_limit(const std::string& path) {
  ::signal(SIGXFSZ, SIG_IGN);
  const rlimit limit = {100, 100};
  if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return 1;
  ofilebuf out(64);
  if (out.open(path.c_str(), 0, 7) != 0) return 2;
  const std::string data(300, 'x');
  if (out.sputn(data.data(), 60) != 60) return 3;
  if (out.sputn(data.data(), 60) != 60) return 4;  // the first 60 are in the file now
  if (out.seek(0, 0) != -1) return 5;
  if (out.sputn(data.data(), 300) >= 300) return 6;
  if (out.close() != -1 || errno != EFBIG) return 7;
  return out.close();
}

TEST(Ofilebuf, AFullDiskIsTold) {
  Temp_Dir dir;
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) ::_exit(write_past_the_limit(dir / "f"));
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
