// Everything that files have, saved and brought back by the program.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>

#include "tests/support/media_bytes.h"
#include "tests/support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using test::Bytes;
using test_support::read_file;
using test_support::Temp_Dir;
using test_support::write_file;

class Content : public testing::Test {
 protected:
  Content() { fs::create_directory(source_); }

  int run(const std::string& arguments) {
    const std::string command =
        std::string(MTF_AGENT) + " " + arguments + " >" + (dir_ / "out") + " 2>&1 </dev/null";
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  std::string storage() const { return " --storage " + (dir_ / "storage") + " --name job "; }
  int full(const std::string& more = "") {
    return run("full --source " + source_ + storage() + "--tmp " + (dir_ / "tmp") + " " + more);
  }
  // Saves, verifies and restores; the restored tree is at back().
  void round_trip(const std::string& more = "") {
    ASSERT_EQ(full(more), 0) << read_file(dir_ / "out");
    ASSERT_EQ(run("verify" + storage()), 0) << read_file(dir_ / "out");
    ASSERT_EQ(run("restore" + storage() + "--to " + (dir_ / "to")), 0) << read_file(dir_ / "out");
  }
  std::string back(const std::string& path = "") const { return dir_ / "to" + source_ + path; }

  Temp_Dir dir_;
  std::string source_ = dir_ / "source";
};

struct stat stat_of(const std::string& path) {
  struct stat record = {};
  EXPECT_EQ(::lstat(path.c_str(), &record), 0) << path;
  return record;
}

std::map<std::string, std::string> attributes_of(const std::string& path) {
  std::map<std::string, std::string> out;
  std::vector<char> names(65536), value(65536);
  const ssize_t size = ::llistxattr(path.c_str(), names.data(), names.size());
  for (ssize_t at = 0; at < size; at += static_cast<ssize_t>(std::strlen(&names[at])) + 1) {
    const ssize_t n = ::lgetxattr(path.c_str(), &names[at], value.data(), value.size());
    out[&names[at]] = std::string(value.data(), n < 0 ? 0 : static_cast<std::size_t>(n));
  }
  return out;
}

// Owner, one named user, group, mask, others.
std::string acl(unsigned int named_rights) {
  const unsigned int none = ~0U;
  Bytes out;
  out.le(2, 4).le(1, 2).le(6, 2).le(none, 4).le(2, 2).le(named_rights, 2).le(1000, 4);
  out.le(4, 2).le(4, 2).le(none, 4).le(0x10, 2).le(7, 2).le(none, 4);
  return out.le(0x20, 2).le(0, 2).le(none, 4).data;
}

bool set(const std::string& path, const std::string& name, const std::string& value) {
  return ::lsetxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0) == 0;
}

void expect_same(const std::string& one, const std::string& other) {
  const struct stat a = stat_of(one), b = stat_of(other);
  EXPECT_EQ(a.st_mode, b.st_mode) << one;
  EXPECT_EQ(a.st_uid, b.st_uid) << one;
  EXPECT_EQ(a.st_gid, b.st_gid) << one;
  EXPECT_EQ(a.st_mtime, b.st_mtime) << one;
  EXPECT_EQ(attributes_of(one), attributes_of(other)) << one;
  if (!S_ISREG(a.st_mode)) return;
  EXPECT_EQ(a.st_blocks, b.st_blocks) << one;
  EXPECT_TRUE(read_file(one) == read_file(other)) << one;
}

TEST_F(Content, RightsAttributesAndHolesComeBack) {
  const auto at = [&](const std::string& path) { return source_ + path; };
  fs::create_directories(at("/d/closed"));
  write_file(at("/d/closed/inside"), "inside");
  write_file(at("/d/plain"), std::string(200000, 'p'));
  write_file(at("/d/empty"), "");
  write_file(at("/d/suid"), "#!");
  for (const char* name : {"/d/holes", "/d/hole", "/d/tail"}) write_file(at(name), "");
  write_file(at("/d/tail"), std::string(8192, 't'));
  std::ofstream(at("/d/holes"), std::ios::in | std::ios::out).seekp(5 << 20)
      << std::string(70000, 'h');
  for (const char* name : {"/d/holes", "/d/hole", "/d/tail"}) fs::resize_file(at(name), 20 << 20);
  if (!set(at("/d/plain"), "user.one", "1")) GTEST_SKIP() << "no attributes here";
  for (int i = 0; i < 30; ++i) set(at("/d/plain"), "user.many" + std::to_string(i), "many");
  // As long as the file system takes it.
  for (std::size_t size = 65535;
       size > 0 && !set(at("/d/empty"), "user.long", std::string(size, 'l')); size /= 2) {
  }
  set(at("/d"), "user.of a directory", "yes");
  set(at("/d/plain"), "system.posix_acl_access", acl(7));
  const bool root = ::geteuid() == 0;
  if (root) {
    ASSERT_EQ(::chown(at("/d/suid").c_str(), 1234, 70000), 0);
    ASSERT_EQ(::chown(at("/d/closed").c_str(), 77, 88), 0);
    set(at("/d/suid"), "security.capability",
        std::string("\1\0\0\2\0\4\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 20));
    set(at("/d/plain"), "trusted.t", std::string("\0\1", 2));
  }
  ASSERT_EQ(::chmod(at("/d/suid").c_str(), 06751), 0);
  ASSERT_EQ(::chmod(at("/d/closed").c_str(), 0500), 0);
  // What is made from here on would inherit this one.
  set(at("/d"), "system.posix_acl_default", acl(5));
  for (const char* options : {"", "--compression zstd --channels 2"}) {
    round_trip(options);
    for (const auto& entry : fs::recursive_directory_iterator(source_)) {
      expect_same(entry.path().string(), back(entry.path().string().substr(source_.size())));
    }
    // A second round meets what the first one left, inherited ACLs included. Nobody but root makes
    // files in a directory that is closed.
    if (!root) ::chmod(back("/d/closed").c_str(), 0700);
    set(back("/d"), "system.posix_acl_default", acl(1));
  }
  ::chmod(at("/d/closed").c_str(), 0700);
  ::chmod(back("/d/closed").c_str(), 0700);
}

TEST_F(Content, AHundredGigabytesOfHolesCostTheirDataAlone) {
  constexpr std::size_t stretches = 1000, stretch = 10000;
  constexpr off_t distance = 100000000;
  const std::string file = source_ + "/sparse";
  {
    std::ofstream out(file, std::ios::binary);
    for (std::size_t i = 0; i < stretches; ++i) {
      out.seekp(static_cast<off_t>(i) * distance)
          << std::string(stretch, static_cast<char>('a' + i % 26));
    }
  }
  ASSERT_EQ(::truncate(file.c_str(), static_cast<off_t>(stretches) * distance), 0);
  const struct stat source = stat_of(file);
  if (source.st_blocks * 512 > 50000000) GTEST_SKIP() << "no holes here";
  round_trip();
  EXPECT_LT(fs::file_size(dir_ / "storage/job.1.0.mtf"),
            static_cast<std::size_t>(source.st_blocks) * 512 + stretches * 100 + 100000);
  const struct stat restored = stat_of(back("/sparse"));
  EXPECT_EQ(restored.st_size, source.st_size);
  EXPECT_EQ(restored.st_blocks, source.st_blocks);
  std::ifstream in(back("/sparse"), std::ios::binary);
  for (std::size_t i = 0; i < stretches; ++i) {
    std::string data(stretch + 1, '\0');
    in.seekg(static_cast<off_t>(i) * distance).read(&data[0], stretch + 1);
    EXPECT_EQ(data, std::string(stretch, static_cast<char>('a' + i % 26)) + '\0') << i;
  }
}

TEST_F(Content, APlainJobLeavesAttributesAndHolesOut) {
  write_file(source_ + "/f", "content");
  if (!set(source_ + "/f", "user.one", "1")) GTEST_SKIP() << "no attributes here";
  round_trip("--plain");
  EXPECT_EQ(read_file(back("/f")), "content");
  EXPECT_TRUE(attributes_of(back("/f")).empty());
}

TEST_F(Content, PreActionDataComesBack) {
  write_file(source_ + "/f", "content");
  const std::string dump = dir_ / "dump", out = dir_ / "out.dump";
  for (const std::size_t size : {0, 1, 0x100000, 3000001}) {
    std::string data(size, '\0');
    for (std::size_t i = 0; i < size; ++i) data[i] = static_cast<char>(i * 7 + i / 1000);
    write_file(dump, data);
    ASSERT_EQ(full("--pre-action " + dump), 0) << read_file(dir_ / "out");
    ASSERT_EQ(run("verify" + storage()), 0) << read_file(dir_ / "out");
    ASSERT_EQ(run("restore" + storage() + "--pre-action " + out), 0) << read_file(dir_ / "out");
    EXPECT_TRUE(read_file(out) == data) << size;
    EXPECT_EQ(stat_of(out).st_mode & 0777, 0600u);
  }
  const std::string piped = "cat " + dump + " | " + MTF_AGENT + " full --quiet --source " +
                            source_ + storage() + "--tmp " + (dir_ / "tmp") + " --pre-action -";
  ASSERT_EQ(std::system(piped.c_str()), 0);
  ASSERT_EQ(run("restore" + storage() + "--pre-action " + out + " --to " + (dir_ / "to")), 0);
  EXPECT_TRUE(read_file(out) == read_file(dump));
  EXPECT_EQ(read_file(back("/f")), "content");
}

TEST_F(Content, PreActionDataThatCannotBeReadOrWrittenIsTold) {
  write_file(source_ + "/f", "content");
  EXPECT_EQ(full("--pre-action " + (dir_ / "missing")), 1);
  EXPECT_EQ(full("--pre-action " + source_), 1);  // a directory can be opened and not read
  EXPECT_FALSE(fs::exists(dir_ / "storage/job.1.0.mtf"));
  ASSERT_EQ(full(), 0);
  EXPECT_EQ(run("restore" + storage() + "--pre-action " + (dir_ / "none")), 1);
  EXPECT_FALSE(fs::exists(dir_ / "none"));
  ASSERT_EQ(full("--pre-action /dev/null"), 0) << read_file(dir_ / "out");
  ASSERT_EQ(::mkfifo((dir_ / "fifo").c_str(), 0600), 0);
  EXPECT_EQ(run("restore" + storage() + "--pre-action " + (dir_ / "fifo")), 1);
  EXPECT_TRUE(fs::is_fifo(dir_ / "fifo"));
  EXPECT_EQ(run("restore" + storage()), 2);
}

}  // namespace
