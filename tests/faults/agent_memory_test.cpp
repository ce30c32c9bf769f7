// Commands of the program for which memory runs out, at each place where they ask for it.
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <regex>

#include "agent/command_line.h"
#include "agent/exit_code.h"
#include "tests/faults/failing_memory.h"
#include "tests/support/agent_run.h"

namespace {

using namespace test_support;
namespace fs = std::filesystem;

// No memory to remove an empty directory does no harm: the next job takes it over.
bool has_file(const std::string& dir) {
  if (!fs::exists(dir)) return false;
  const fs::recursive_directory_iterator all(dir);
  return std::any_of(begin(all), end(all), [](const auto& entry) { return !entry.is_directory(); });
}

class Short_Memory : public Agent_Run {
 protected:
  // Files with attributes, links, holes and a path of more than 247 units; the first is long enough
  // for several threads to compress it.
  Short_Memory() {
    write_file(source("/a"), std::string(300001, 'a'));
    fs::create_directory(source("/d"));
    write_file(source("/d/c"), "c");
    ::setxattr(source("/d/c").c_str(), "user.x", "y", 1, 0);
    fs::create_hard_link(source("/a"), source("/d/link"));
    fs::create_symlink("a", source("/symlink"));
    make_deep(source(), 4, 250);
    make_sparse(source("/d/sparse"), 1 << 20);
    for (const char* channels : {"1", "2"}) EXPECT_EQ(save({"--channels", channels}).code, 0);
    write_file(source("/d/new"), "n");
    write_file(source("/d/c"), "changed");
    fs::last_write_time(source("/d/c"), fs::last_write_time(source("/a")) + std::chrono::hours(1));
    for (const bool plain : {false, true}) expected_[plain] = snapshot(source(), plain);
  }

  // The exit code of a command line for which the `n`-th piece of memory isn't there, from its
  // first step behind the parsing on. What it says on standard error goes to `err`.
  int exit_code(const Arguments& line, unsigned long n, bool& refused) const {
    std::ofstream err(dir_ / "err");
    agent::Console console(std::cout, err);
    const agent::Command_Line command =
        agent::parse_command_line(Arguments(line.begin() + 1, line.end()));
    int code = agent::exit_failed;
    fail_memory(n);
    try {
      code = command.command(console);
    } catch (const std::bad_alloc&) {
    }
    refused = memory_failed();
    return code;
  }

  // That of one for which all memory is there. What the C library sets up once is there from then
  // on.
  int usual_code(const Arguments& line) const {
    bool refused;
    return exit_code(line, 0, refused);
  }

  Snapshot expected_[2];  // the second for plain jobs
};

class Short_Memory_Job : public Short_Memory,
                         public testing::WithParamInterface<std::pair<std::string, Arguments>> {};

// It fails, or what it has not is told.
TEST_P(Short_Memory_Job, IsWholeOrLeavesNothing) {
  const auto& [command, how] = GetParam();
  Arguments line = full(how, command);
  line.insert(line.end(), {"--pre-action", source("/a")});
  const Arguments before = pieces();
  const std::regex told("error: |skipped: |corrupt: |out of memory");
  ASSERT_EQ(usual_code(line), 0);
  ASSERT_EQ(run(on_storage("remove", {"--seq", "3"})).code, 0);
  at_each_place(
      [&](unsigned long n) {
        fs::remove_all(dir_ / "tmp");
        bool refused = true;
        const int code = exit_code(line, n, refused);
        EXPECT_TRUE(code == 0 || code == 1 || code == 3) << code;
        EXPECT_FALSE(has_file(dir_ / "tmp"));
        if (code == 1) {
          EXPECT_EQ(pieces(), before);
        } else {
          const bool plain = how.back() == "--plain";
          const std::string said = read_file(dir_ / "err");
          EXPECT_EQ(restore("to").code, 0);
          const std::string lost = difference(expected_[plain], snapshot(back(), plain));
          EXPECT_TRUE(lost.empty() || std::regex_search(said, told)) << lost << said;
          expect_verified();
          fs::remove_all(dir_ / "to");
          EXPECT_EQ(run(on_storage("remove", {"--seq", "3"})).code, 0);
        }
        return refused;
      },
      MTF_TEST_MEMORY_STRIDE);
}

INSTANTIATE_TEST_SUITE_P(
    , Short_Memory_Job,
    testing::Values(
        std::make_pair("full", Arguments{"--threads", "1"}),
        std::make_pair("full", Arguments{"--threads", "1", "--channels", "2", "--plain"}),
        std::make_pair("full", Arguments{"--threads", "3", "--compression", "zstd", "--plain"}),
        std::make_pair("incremental", Arguments{"--threads", "1", "--base", "1", "--plain"}),
        std::make_pair("incremental",
                       Arguments{"--threads", "2", "--channels", "2", "--compression", "lz4"})));

TEST_F(Short_Memory, WhatReadsIsRightOrSaysNo) {
  const Output saved = save({"--channels", "2"}, "incremental");
  ASSERT_EQ(saved.code, 0);
  const Arguments before = pieces();
  const Arguments lines[] = {on_storage("verify"),
                             on_storage("list"),
                             on_storage("list", {"--from-media"}),
                             on_storage("jobs"),
                             on_storage("remove", {"--seq", "2"}),
                             on_storage("restore", {"--to", dir_ / "to"})};
  for (const Arguments& line : lines) {
    const int usual = usual_code(line);
    at_each_place(
        [&](unsigned long n) {
          fs::remove_all(dir_ / "to");
          bool refused = true;
          const int code = exit_code(line, n, refused);
          EXPECT_TRUE(code == usual || code == 1) << code;
          if (code == 0 && line[1] == "restore") {
            expect_restored(expected_[false], source(), saved.err);
          }
          EXPECT_EQ(pieces(), before);
          return refused;
        },
        MTF_TEST_MEMORY_STRIDE);
  }
}

}  // namespace
