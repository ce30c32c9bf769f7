#include "agent/command_line.h"

#include <gtest/gtest.h>

#include <sstream>

#include "agent/exit_code.h"

namespace {

using Arguments = std::vector<std::string>;

struct Output {
  int code;
  std::string out;
  std::string err;
};

Output run(const Arguments& arguments) {
  std::ostringstream out, err;
  agent::Console console(out, err);
  const int code = agent::run(arguments, console);
  return {code, out.str(), err.str()};
}

// The arguments of a good full job, with more behind them.
Arguments full(const Arguments& more) {
  Arguments all{"full", "--source", "/s", "--storage", "/no/storage", "--name", "demo"};
  all.insert(all.end(), more.begin(), more.end());
  return all;
}

TEST(Command_Line, WrongUse) {
  const struct {
    Arguments arguments;
    const char* line;
  } cases[] = {
      {{}, "a command is missing; 'mtf-agent --help' names them all"},
      {{"bogus"}, "there is no command 'bogus'; 'mtf-agent --help' names them all"},
      {{"--bogus"}, "The following argument was not expected: --bogus"},
      {{"full"}, "--source is required"},
      {{"full", "--source", "/s", "--name", "demo"}, "--storage is required"},
      {{"full", "--source", "/s", "--storage", "/d"}, "--name is required"},
      {{"full", "--sorce", "/s", "--name", "d"},
       "The following arguments were not expected: --sorce /s"},
      {{"full", "--source", "/s", "--storage", "/d", "--name", "a/b"},
       "--name: the name 'a/b' holds more than letters, digits, '_' and '-'"},
      {{"full", "--source", "/s", "--storage", "/d", "--name", ""}, "--name: the name is empty"},
      {full({"extra"}), "The following argument was not expected: extra"},
      {full({"--seq=1"}), "The following argument was not expected: --seq=1"},
      {full({"--channels", "0"}), "--channels: Value 0 not in range 1 to 64"},
      {full({"--channels", "65"}), "--channels: Value 65 not in range 1 to 64"},
      {full({"--channels", "-1"}), "--channels: Value -1 not in range 1 to 64"},
      {full({"--threads", "x"}), "--threads: Value x not in range 1 to 256"},
      {full({"--compression", "gzip"}), "--compression: gzip not in {none,lz4,zstd}"},
      {full({"--level", "23"}), "--level: Value 23 not in range 1 to 22"},
      {full({"--volume", "C:"}), "--volume: 'C:' isn't of the form VOLUME=DIR"},
      {full({"--volume", "/=/mnt"}), "--volume '/=/mnt': a volume is given as X:=DIR"},
      {full({"--shadow", "x=/mnt"}),
       "--shadow 'x=/mnt': a shadow volume is given as X:=DIR or /=DIR"},
      {full({"--exclude", "/"}), "--exclude '/' leaves nothing of the source '/s'"},
      {full({"--exclude", ""}), "the path '' can't be made absolute"},
      {{"full", "--source", "/s", "--storage", "/d", "--name", std::string(201, 'a')},
       "--name: the name is longer than 200 characters"},
      {full({"--source", ""}), "the path '' can't be made absolute"},
      {{"list", "--storage", "/d"}, "--name is required"},
      {{"list", "--storage", "/d", "--name", "demo", "--seq", "0"},
       "--seq: Value 0 not in range 1 to 65535"},
      {{"verify", "--name", "demo"}, "--storage is required"},
      {{"restore", "--storage", "/d", "--name", "demo"}, "--to is required"},
      {{"remove", "--storage", "/d", "--name", "demo"}, "--seq is required"},
      {{"jobs"}, "--storage is required"},
      {{"jobs", "--storage", "/d", "--name", "a.b"},
       "--name: the name 'a.b' holds more than letters, digits, '_' and '-'"},
  };
  for (const auto& each : cases) {
    const Output output = run(each.arguments);
    EXPECT_EQ(output.code, agent::exit_usage) << each.line;
    EXPECT_EQ(output.out, "") << each.line;
    EXPECT_EQ(output.err, std::string("mtf-agent: ") + each.line + '\n');
  }
}

TEST(Command_Line, HelpTellsTheExitCodes) {
  Arguments commands[] = {{}, {"full"}, {"list"}, {"verify"}, {"restore"}, {"remove"}, {"jobs"}};
  for (Arguments& arguments : commands) {
    arguments.push_back("--help");
    const Output output = run(arguments);
    EXPECT_EQ(output.code, 0);
    EXPECT_EQ(output.err, "");
    EXPECT_NE(output.out.find("Usage: mtf-agent"), std::string::npos);
    EXPECT_NE(output.out.find("Exit codes: 0"), std::string::npos) << output.out;
  }
}

}  // namespace
