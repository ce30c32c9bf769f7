#include "platform/backup_read.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <thread>

#include "platform/file.h"
#include "platform/native_path.h"
#include "tests/support/media_bytes.h"
#include "tests/support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using test::Bytes;
using test_support::Temp_Dir;
using test_support::write_file;

struct Record {
  platform::WIN32_STREAM_ID id;
  std::string data;
};

class Backup_Read : public testing::Test {
 protected:
  bool open(const std::string& native, bool directory = false) {
    std::string system;
    EXPECT_TRUE(platform::system_path(native, system));
    return source_->open(directory ? system + '\\' : system);
  }

  // Reads `size` bytes in pieces of an odd size, or what there is.
  std::string take(std::size_t size) {
    std::string out(size, '\0');
    std::size_t at = 0;
    while (at < size) {
      const long long n = source_->read(&out[at], std::min<std::size_t>(size - at, 4099));
      if (n <= 0) break;
      at += static_cast<std::size_t>(n);
    }
    out.resize(at);
    return out;
  }

  std::vector<Record> records() {
    std::vector<Record> out;
    char head[20];
    for (;;) {
      const long long n = source_->read(head, sizeof head);
      if (n == 0) return out;
      EXPECT_EQ(n, 20);
      if (n != 20) return out;
      Record record{platform::load_stream_id(head), {}};
      record.data = take(record.id.Size);
      EXPECT_EQ(record.data.size(), record.id.Size);
      out.push_back(record);
    }
  }

  Temp_Dir dir_;
  std::vector<std::string> left_out_;
  std::unique_ptr<platform::Record_Source> source_ =
      platform::file_records([this](const std::string& name, const std::string& why) {
        left_out_.push_back(name + ": " + why);
      });
};

std::string sid(unsigned int kind, unsigned int value) {
  return Bytes().raw(std::string("\1\3\0\0\0\0\0\5", 8)).le(88, 4).le(kind, 4).le(value, 4).data;
}

std::string descriptor(unsigned int uid, unsigned int gid, unsigned int mode) {
  Bytes out;
  out.le(1, 1).le(0, 1).le(0x8004, 2).le(20, 4).le(40, 4).le(0, 4).le(60, 4);
  out.raw(sid(1, uid)).raw(sid(2, gid));
  out.le(2, 1).le(0, 1).le(36, 2).le(1, 2).le(0, 2);  // the ACL, with one entry
  return out.le(1, 1).le(0, 1).le(28, 2).le(0, 4).raw(sid(3, mode)).data;
}

TEST_F(Backup_Read, GivesRightsAndDataOfAFile) {
  const std::string content(100000, 'c');
  write_file(dir_ / "f", content);
  const bool root = ::geteuid() == 0;
  if (root) {
    ASSERT_EQ(::chown((dir_ / "f").c_str(), 70000, 0x80000001u), 0);
  }
  ASSERT_EQ(::chmod((dir_ / "f").c_str(), 04751), 0);
  ASSERT_TRUE(open(dir_ / "f"));
  const auto found = records();
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[0].id.dwStreamId, BACKUP_SECURITY_DATA);
  EXPECT_EQ(found[0].data, root ? descriptor(70000, 0x80000001u, 04751)
                                : descriptor(::geteuid(), ::getegid(), 04751));
  EXPECT_EQ(found[1].id.dwStreamId, BACKUP_DATA);
  EXPECT_EQ(found[1].id.dwStreamAttributes, 0u);
  EXPECT_EQ(found[1].data, content);
}

TEST_F(Backup_Read, AttributesAreSortedAndAligned) {
  write_file(dir_ / "f", "");
  const std::string file = dir_ / "f";
  const std::string longest(65535, 'v'), too_long(65536, 'w');
  if (::setxattr(file.c_str(), "user.c", "123", 3, 0) != 0) GTEST_SKIP() << "no attributes here";
  ASSERT_EQ(::setxattr(file.c_str(), "user.a", "", 0, 0), 0);
  ASSERT_EQ(::setxattr(file.c_str(), "user.bb", "1234", 4, 0), 0);
  ASSERT_TRUE(open(file));
  const auto found = records();
  ASSERT_EQ(found.size(), 3u);
  EXPECT_EQ(found[1].id.dwStreamId, BACKUP_EA_DATA);
  Bytes wanted;
  wanted.le(16, 4).le(0, 1).le(6, 1).le(0, 2).raw("user.a").zeros(2);
  wanted.le(20, 4).le(0, 1).le(7, 1).le(4, 2).raw("user.bb").zeros(1).raw("1234");
  wanted.le(0, 4).le(0, 1).le(6, 1).le(3, 2).raw("user.c").zeros(1).raw("123");
  EXPECT_EQ(found[1].data, wanted.data);
  // Some file systems take values of the kernel's limit, which is one byte beyond the format's.
  if (::setxattr(file.c_str(), "user.b", too_long.data(), too_long.size(), 0) != 0) return;
  ASSERT_EQ(::setxattr(file.c_str(), "user.d", longest.data(), longest.size(), 0), 0);
  ASSERT_TRUE(open(file));
  const auto more = records();
  ASSERT_EQ(more.size(), 3u);
  ASSERT_EQ(left_out_.size(), 1u);
  EXPECT_EQ(left_out_[0].rfind("user.b:", 0), 0u) << left_out_[0];
  EXPECT_EQ(more[1].data.size(), wanted.data.size() + 2 + 8 + 7 + 65535);
}

// Neither what it has lost while it is read nor the rest of a sparse one is taken for a hole.
TEST_F(Backup_Read, AFileThatShrinksReadsShort) {
  constexpr off_t mib = 1 << 20;
  const std::string file = dir_ / "f";
  for (const bool sparse : {false, true}) {
    write_file(file, std::string(mib, 'x'));
    if (sparse) fs::resize_file(file, 2 * mib);
    ASSERT_TRUE(open(file));
    take(20 + 96 + 20 + (sparse ? 28 : 0));
    EXPECT_EQ(take(1000).size(), 1000u);
    fs::resize_file(file, 5000);
    EXPECT_EQ(take(mib - 1000).size(), 4000u);
    EXPECT_EQ(take(1).size(), 0u);
  }
  write_file(file, std::string(4096, 'x'));
  fs::resize_file(file, 2 * mib);
  ASSERT_TRUE(open(file));
  take(20 + 96 + 20 + 28 + 4096);
  fs::resize_file(file, 4096);
  const std::string head = take(28);
  ASSERT_EQ(head.size(), 28u);
  EXPECT_EQ(platform::load_stream_id(head.data()).Size, 8u + 2 * mib - 4096);
  EXPECT_EQ(take(1).size(), 0u);
}

TEST_F(Backup_Read, AFileUnderALeaseIsWaitedFor) {
  std::string path = "/dev/shm/mtf_XXXXXX", system;  // not every file system has leases
  ::close(::mkstemp(&path[0]));
  ASSERT_TRUE(platform::system_path(path, system));
  for (const bool records : {false, true}) {  // the last one stays open
    const int fd = ::open(path.c_str(), O_RDWR);
    ::fcntl(fd, F_SETSIG, SIGURG);
    if (::fcntl(fd, F_SETLEASE, F_WRLCK) != 0) {
      ::unlink(path.c_str());
      GTEST_SKIP() << "no leases here";
    }
    std::thread holder([fd] {
      while (::fcntl(fd, F_GETLEASE) == F_WRLCK) std::this_thread::yield();
      ::close(fd);
    });
    platform::File file;
    EXPECT_TRUE(records ? source_->open(system) : file.open_read(system)) << errno;
    holder.join();
  }
  ::unlink(path.c_str());
}

TEST_F(Backup_Read, RefusesWhatItCannotRead) {
  write_file(dir_ / "f", "x");
  ASSERT_EQ(::mkfifo((dir_ / "fifo").c_str(), 0600), 0);
  ASSERT_EQ(::symlink("f", (dir_ / "link").c_str()), 0);
  ASSERT_EQ(::symlink(".", (dir_ / "dir_link").c_str()), 0);
  const struct {
    const char* name;
    bool directory;
    int error;
    int windows;
  } cases[] = {{"fifo", false, EINVAL, 87},
               {"link", false, ELOOP, 1921},
               {"dir_link", false, ELOOP, 1921},
               {"missing", false, ENOENT, 2},
               {"f", true, ENOTDIR, 3}};
  for (const auto& c : cases) {
    EXPECT_FALSE(open(dir_ / c.name, c.directory)) << c.name;
    EXPECT_EQ(errno, c.error) << c.name;
    EXPECT_EQ(source_->last_error(), c.windows) << c.name;
    char byte;
    EXPECT_EQ(source_->read(&byte, 1), 0);
  }
  EXPECT_TRUE(open(dir_ / "dir_link", true));
}

}  // namespace
