// Commands of the program for which memory runs out, at each place where they ask for it.
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iostream>

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

class Short_Memory_Agent : public Agent_Run {
 protected:
  Short_Memory_Agent() {
    write_file(source("/a"), std::string(70001, 'a'));
    fs::create_directory(source("/d"));
    write_file(source("/d/c"), "c");
    ::setxattr(source("/d/c").c_str(), "user.x", "y", 1, 0);
    EXPECT_EQ(save().code, 0);
    write_file(source("/d/new"), "n");
    expected_ = snapshot(source());
  }

  // The exit code of a command line for which the `n`-th piece of memory isn't there, from its
  // first step behind the parsing on.
  int exit_code(const Arguments& line, unsigned long n, bool& refused) const {
    agent::Console console(std::cout, std::cerr);
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

  Snapshot expected_;
};

TEST_F(Short_Memory_Agent, AJobIsWholeOrLeavesNothing) {
  const Arguments before = pieces();
  for (const Arguments& line : {full({"--channels", "2"}), full({}, "incremental")}) {
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
            expect_verified();
            EXPECT_EQ(run(on_storage("remove", {"--seq", "2"})).code, 0);
          }
          return refused;
        },
        MTF_TEST_MEMORY_STRIDE);
    run(on_storage("remove", {"--seq", "2"}));  // of the last place, where nothing failed
  }
}

TEST_F(Short_Memory_Agent, WhatReadsIsRightOrSaysNo) {
  ASSERT_EQ(save({}, "incremental").code, 0);
  const Arguments before = pieces();
  const Arguments lines[] = {on_storage("verify"),
                             on_storage("list"),
                             on_storage("list", {"--from-media"}),
                             on_storage("jobs"),
                             on_storage("remove", {"--seq", "1"}),
                             on_storage("restore", {"--to", dir_ / "to"})};
  for (const Arguments& line : lines) {
    const Output usual = run(line);
    at_each_place(
        [&](unsigned long n) {
          fs::remove_all(dir_ / "to");
          bool refused = true;
          const int code = exit_code(line, n, refused);
          EXPECT_TRUE(code == 0 || code == 1) << code;
          EXPECT_TRUE(code == 1 || usual.code == 0);
          if (code == 0 && line[1] == "restore") {
            EXPECT_EQ(difference(expected_, snapshot(back())), "");
          }
          EXPECT_EQ(pieces(), before);
          return refused;
        },
        MTF_TEST_MEMORY_STRIDE);
  }
}

}  // namespace
