// Everything that files have, saved and brought back by the program.
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/support/agent_run.h"
#include "tests/support/media_bytes.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;

class Content : public Agent_Run {};

// Owner, one named user, group, mask, others.
std::string acl(unsigned int named_rights) {
  const unsigned int none = ~0U;
  test::Bytes out;
  out.le(2, 4).le(1, 2).le(6, 2).le(none, 4).le(2, 2).le(named_rights, 2).le(1000, 4);
  out.le(4, 2).le(4, 2).le(none, 4).le(0x10, 2).le(7, 2).le(none, 4);
  return out.le(0x20, 2).le(0, 2).le(none, 4).data;
}

bool set(const std::string& path, const std::string& name, const std::string& value) {
  return ::lsetxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0) == 0;
}

TEST_F(Content, RightsAndAttributesComeBack) {
  fs::create_directories(source("/d/closed"));
  for (const char* name : {"/d/closed/inside", "/d/empty", "/d/plain", "/d/suid"}) {
    write_file(source(name), name);
  }
  if (!set(source("/d/plain"), "user.one", "1")) GTEST_SKIP() << "no attributes here";
  for (int i = 0; i < 30; ++i) set(source("/d/plain"), "user.many" + std::to_string(i), "many");
  // As long as the file system takes it.
  for (std::size_t size = 65535;
       size > 0 && !set(source("/d/empty"), "user.long", std::string(size, 'l')); size /= 2) {
  }
  set(source("/d"), "user.of a directory", "yes");
  set(source("/d/plain"), "system.posix_acl_access", acl(7));
  if (is_root()) {
    ASSERT_EQ(::chown(source("/d/suid").c_str(), 1234, 70000), 0);
    ASSERT_EQ(::chown(source("/d/closed").c_str(), 77, 88), 0);
    set(source("/d/suid"), "security.capability",
        std::string("\1\0\0\2\0\4\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 20));
    set(source("/d/plain"), "trusted.t", std::string("\0\1", 2));
  }
  ASSERT_EQ(::chmod(source("/d/suid").c_str(), 06751), 0);
  ASSERT_EQ(::chmod(source("/d/closed").c_str(), 0500), 0);
  // What is made from here on would inherit this one.
  set(source("/d"), "system.posix_acl_default", acl(5));
  expect_round_trip({}, {source()}, 0);
  // A second restore meets what the first one left, inherited lists included. Nobody but root makes
  // files in a directory that is closed.
  if (!is_root()) ::chmod(back("/d/closed").c_str(), 0700);
  set(back("/d"), "system.posix_acl_default", acl(1));
  EXPECT_EQ(restore("to").code, 0);
  EXPECT_EQ(difference(snapshot(source()), snapshot(back())), "");
  for (const std::string& top : {source("/d/closed"), back("/d/closed")})
    fs::permissions(top, fs::perms::owner_all);
}

TEST_F(Content, AHundredGigabytesOfHolesCostTheirDataAlone) {
  constexpr std::size_t stretches = 1000, stretch = 10000;
  constexpr off_t distance = 100000000;
  const auto data = [](std::size_t i) {
    return std::string(stretch, static_cast<char>('a' + i % 26));
  };
  std::ofstream out(source("/sparse"), std::ios::binary);
  for (std::size_t i = 0; i < stretches; ++i) {
    out.seekp(static_cast<off_t>(i) * distance) << data(i);
  }
  out.close();
  fs::resize_file(source("/sparse"), stretches * distance);
  struct stat before, after;
  ASSERT_EQ(::stat(source("/sparse").c_str(), &before), 0);
  if (before.st_blocks * 512 > 50000000) GTEST_SKIP() << "no holes here";
  expect_round_trip({}, {source()}, 0);
  EXPECT_LT(fs::file_size(storage("demo.1.0.mtf")),
            static_cast<std::size_t>(before.st_blocks) * 512 + stretches * 100 + 100000);
  ASSERT_EQ(::stat(back("/sparse").c_str(), &after), 0);
  EXPECT_EQ(after.st_blocks, before.st_blocks);
  std::ifstream in(back("/sparse"), std::ios::binary);
  for (std::size_t i = 0; i < stretches; ++i) {
    std::string found(stretch + 1, '\0');
    in.seekg(static_cast<off_t>(i) * distance).read(&found[0], stretch + 1);
    EXPECT_EQ(found, data(i) + '\0') << i;
  }
}

TEST_F(Content, APlainJobLeavesAttributesOut) {
  write_file(source("/f"), "content");
  const Snapshot bare = snapshot(source());
  if (!set(source("/f"), "user.one", "1")) GTEST_SKIP() << "no attributes here";
  ASSERT_EQ(save({"--plain"}).code, 0);
  expect_verified();
  ASSERT_EQ(restore("to").code, 0);
  EXPECT_EQ(difference(bare, snapshot(back())), "");
}

TEST_F(Content, PreActionDataComesBack) {
  const std::string dump = dir_ / "dump", out = dir_ / "out";
  const Arguments to_out = on_storage("restore", {"--pre-action", out});
  for (const std::size_t size : {0, 1, 0x100000, 3000001}) {
    std::string data(size, '\0');
    for (std::size_t i = 0; i < size; ++i) data[i] = static_cast<char>(i * 7 + i / 1000);
    write_file(dump, data);
    ASSERT_EQ(save({"--pre-action", dump}).code, 0);
    expect_verified();
    ASSERT_EQ(run(to_out).code, 0);
    EXPECT_TRUE(read_file(out) == data) << size;
    EXPECT_EQ(fs::status(out).permissions(), fs::perms(0600));
  }
  Arguments piped = full({"--pre-action", "-"});
  piped.insert(piped.begin(), {"/bin/sh", "-c", "cat " + dump + " | \"$0\" \"$@\""});
  ASSERT_EQ(run(piped).code, 0);
  ASSERT_EQ(run(to_out).code, 0);
  EXPECT_TRUE(read_file(out) == read_file(dump));
}

TEST_F(Content, PreActionDataThatCannotBeReadOrWrittenIsTold) {
  const auto restore_to = [&](const std::string& to) {
    return run(on_storage("restore", {"--pre-action", dir_ / to})).code;
  };
  // A directory can be opened and not read.
  for (const std::string& from : {dir_ / "missing", source()}) {
    EXPECT_EQ(save({"--pre-action", from}).code, 1);
    EXPECT_EQ(pieces(), Arguments());
  }
  ASSERT_EQ(save().code, 0);
  EXPECT_EQ(restore_to("none"), 1);
  EXPECT_FALSE(fs::exists(dir_ / "none"));
  ASSERT_EQ(save({"--pre-action", "/dev/null"}).code, 0);
  ASSERT_EQ(::mkfifo((dir_ / "fifo").c_str(), 0600), 0);
  EXPECT_EQ(restore_to("fifo"), 1);
  EXPECT_TRUE(fs::is_fifo(dir_ / "fifo"));
  EXPECT_EQ(run(on_storage("restore")).code, 2);
}

}  // namespace
