// Real trees and hard ones go out to a storage and come back.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/agent_run.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;

struct Kind {
  const char *channels, *compression, *storage;
};

class Round_Trip : public Agent_Run {};
class Round_Trip_Kinds : public Round_Trip, public testing::WithParamInterface<Kind> {};

TEST_P(Round_Trip_Kinds, HardTree) {
  use_storage(GetParam().storage);
  make_hard_tree(source());
  expect_round_trip({"--channels", GetParam().channels, "--compression", GetParam().compression},
                    {source()}, 0);
  EXPECT_EQ(snapshot(source()).size(), snapshot(back()).size());
}

INSTANTIATE_TEST_SUITE_P(, Round_Trip_Kinds,
                         testing::Values(Kind{"1", "none", "directory"}, Kind{"1", "lz4", "remote"},
                                         Kind{"1", "zstd", "directory"},
                                         Kind{"3", "none", "encrypted"},
                                         Kind{"3", "lz4", "directory"},
                                         Kind{"3", "zstd", "remote"}));

TEST_F(Round_Trip, WhatIsNotSavedIsNamed) {
  write_file(source("/file"), "content");
  write_file(source("/zero"), "");
  fs::create_directory(source("/dir"));
  fs::create_hard_link(source("/file"), source("/second name"));
  fs::create_symlink("file", source("/link"));
  fs::create_symlink("gone", source("/dir/back\\slash"));
  fs::create_directory_symlink("dir", source("/link to dir"));
  ASSERT_EQ(::mkfifo(source("/fifo").c_str(), 0644), 0);
  ASSERT_EQ(make_socket(source("/socket").c_str()), 0);
  if (is_root()) {
    ::mknod(source("/device").c_str(), S_IFCHR | 0666, makedev(1, 3));
    ::mknod(source("/block").c_str(), S_IFBLK | 0666, makedev(7, 200));
  }
  const std::size_t all = snapshot(source()).size();
  for (const Arguments& how : {Arguments{"--channels", "1", "--no-links"},
                               Arguments{"--channels", "3", "--no-links"}, Arguments{}}) {
    expect_round_trip(how, {source()}, 0);
    EXPECT_EQ(snapshot(back()).size(), how.empty() ? all - 1 : 3U) << "the socket; file, zero, dir";
    fs::remove_all(dir_ / "to");
    fs::remove_all(dir_ / "storage");
  }
}

TEST_F(Round_Trip, PathsBeyondTheFormatsLimitAreNamed) {
  make_deep(source(), 200, 250);
  write_file(source("/other"), "other");
  expect_round_trip({}, {source()}, 3);
}

TEST_F(Round_Trip, WhatTheUserMayNotReadIsNamed) {
  for (const char* directory : {"/closed/below", "/no way in", "/read only"}) {
    fs::create_directories(source(directory));
    write_file(source(directory) + "/f", "f");
  }
  write_file(source("/secret"), "secret");
  for (const char* name : {"/secret", "/closed"}) ::chmod(source(name).c_str(), 0);
  ::chmod(source("/no way in").c_str(), 0444);
  ::chmod(source("/read only").c_str(), 0555);
  const std::string program = dir_ / "mtf-agent";
  fs::copy_file(MTF_AGENT, program);
  if (is_root()) {
    for (const auto& entry : fs::recursive_directory_iterator(dir_.path())) {
      ASSERT_EQ(::lchown(entry.path().c_str(), nobody, nobody), 0);
    }
    ASSERT_EQ(::chown(dir_.path().c_str(), nobody, nobody), 0);
  }
  const auto as_user = [&](Arguments arguments) {
    arguments[0] = program;
    return run(arguments, {RLIM_INFINITY, is_root()});
  };
  const Output saved = as_user(full());
  EXPECT_EQ(saved.code, 3) << saved.err;
  for (const char* name : {"/secret", "/closed", "/no way in/f"}) {
    EXPECT_NE(saved.err.find("skipped: " + source(name) + ": "), std::string::npos) << saved.err;
  }
  EXPECT_NE(saved.out.find("skipped: 1 directory, 2 files;"), std::string::npos) << saved.out;
  EXPECT_EQ(as_user(on_storage("verify")).code, 0);
  EXPECT_EQ(as_user(on_storage("restore", {"--to", dir_ / "to"})).code, 0);
  EXPECT_EQ(read_file(back("/read only/f")), "f");
  EXPECT_FALSE(fs::exists(back("/secret")));
}

TEST_F(Round_Trip, TreesOfTheMachine) {
  expect_round_trip({}, {"/etc", MTF_TEST_MACHINE_TREE}, is_root() ? 0 : 3);
}

// Runs only where it is asked for by its name.
TEST_F(Round_Trip, HundredThousandFilesInOneDirectory) {
  make_many(source(), 100000);
  expect_round_trip({"--channels", "2"}, {source()}, 0);
}

}  // namespace
