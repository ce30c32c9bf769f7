// What can't be done is said in a clear line, with the right exit code, and harms nothing.
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <regex>

#include "tests/support/agent_run.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;

class Bad_Input : public Agent_Run {
 protected:
  Bad_Input() { write_file(source("/f"), "f"); }

  void expect_failure(const Output& output, const std::string& line) {
    EXPECT_EQ(output.code, 1);
    EXPECT_EQ(output.err, "error: " + line + '\n');
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(pieces(), Arguments{});
  }
};

TEST_F(Bad_Input, Sources) {
  fs::create_symlink("f", source("/link"));
  ASSERT_EQ(::mkfifo(source("/fifo").c_str(), 0644), 0);
  const std::pair<std::string, const char*> cases[] = {
      {source("/missing"), ": No such file or directory"},
      {source("/f/below"), ": Not a directory"},
      {source("/link"), " is a symbolic link to 'f': name what it leads to"},
      {source("/fifo"), " is neither a directory nor a file"},
  };
  for (const auto& [path, fault] : cases) {
    expect_failure(save({"--source", source("/f"), "--source", path}),
                   "the source '" + path + '\'' + fault);
  }
  EXPECT_FALSE(fs::exists(dir_ / "storage")) << "nothing was touched";
  const Output inside = run(agent({"full", "--source", source("/f"), "--storage", source(),
                                   "--name", "demo", "--tmp", dir_ / "tmp"}));
  EXPECT_EQ(inside.code, 2);
  EXPECT_EQ(inside.err, "mtf-agent: the source '" + source("/f") + "' lies in the storage '" +
                            source() + "'\n");
}

TEST_F(Bad_Input, Storages) {
  const std::string file = source("/f"), none = dir_ / "none";
  const std::string missing = "storage '" + none + "': No such file or directory";
  const auto on = [&](const std::string& path, const Arguments& command) {
    Arguments all = agent(command);
    all.insert(all.end(), {"--storage", path});
    return run(all);
  };
  for (const std::string& path : {file, file + "/s"}) {
    expect_failure(on(path, {"full", "--source", source(), "--name", "demo", "--tmp", none}),
                   "storage '" + path + "': Not a directory");
  }
  const Arguments commands[] = {{"list", "--name", "demo"},
                                {"verify", "--name", "demo"},
                                {"restore", "--name", "demo", "--to", dir_ / "to"},
                                {"jobs"},
                                {"remove", "--name", "demo", "--seq", "1"}};
  for (const Arguments& command : commands) expect_failure(on(none, command), missing);
  expect_failure(on(none + "/s", {"full", "--source", source(), "--name", "demo", "--tmp", none}),
                 "storage '" + none + "/s': No such file or directory; the directory above it " +
                     "isn't there either");
  EXPECT_FALSE(fs::exists(none));
  EXPECT_EQ(read_file(file), "f");
  if (!is_root()) return;
  // Somebody else's.
  fs::create_directory(storage());
  const std::string program = dir_ / "mtf-agent";
  fs::copy_file(MTF_AGENT, program);
  ASSERT_EQ(::chmod(dir_.path().c_str(), 0755), 0);
  Arguments arguments = full();
  arguments[0] = program;
  for (const std::string& path : {dir_ / "storage", dir_ / "new"}) {
    arguments[3] = path;
    expect_failure(run(arguments, {RLIM_INFINITY, true}),
                   "storage '" + path + "': Permission denied");
  }
}

// A small job whose pieces get damaged.
class Damage : public Agent_Run {
 protected:
  Damage() {
    fs::create_directories(source("/d/e"));
    for (int i = 0; i < 6; ++i) {
      write_file(source("/d/f" + std::to_string(i)), std::string(700 * i, 'a' + i));
    }
    write_file(source("/d/e/z"), "zzz");
    fs::create_symlink("f1", source("/d/link"));
    fs::create_hard_link(source("/d/f2"), source("/d/e/further"));
    EXPECT_EQ(save({"--channels", "2"}).code, 0);
    names_ = pieces();
    EXPECT_EQ(names_.size(), 4U);
    source_ = snapshot(source());
  }

  // Runs the three commands that read the job; what comes back must be right, or the run must have
  // said that it isn't. Returns the exit code of `verify`.
  int expect_order() {
    const Output verified = run(on_storage("verify"));
    EXPECT_TRUE(verified.code == 0 || verified.code == 1) << verified.err;
    EXPECT_TRUE(verified.code == 0 ||
                std::regex_search(
                    verified.out + verified.err,
                    std::regex("demo[.]1[.][12][.](mtf|cat):[0-9]+: |is not complete|no job")))
        << verified.out << verified.err;
    const Output listed = run(on_storage("list"));
    EXPECT_TRUE(listed.code == 0 || listed.code == 1) << listed.err;
    EXPECT_EQ(listed.code == 1, listed.err.find("error: ") != std::string::npos) << listed.err;
    fs::remove_all(dir_ / "to");
    const Output restored = restore("to");
    const Snapshot found = fs::exists(back()) ? snapshot(back()) : Snapshot();
    EXPECT_TRUE(restored.code == 0 ? difference(source_, found).empty()
                                   : restored.code == 1 && !restored.err.empty());
    for (const auto& entry : found) EXPECT_EQ(source_.count(entry.first), 1U) << entry.first;
    return verified.code;
  }

  Arguments names_;
  Snapshot source_;
};

TEST_F(Damage, PiecesThatAreMissingCutOffOrWrong) {
  for (const std::string& name : names_) {
    SCOPED_TRACE(name);
    const std::string whole = read_file(storage(name));
    fs::remove(storage(name));
    EXPECT_EQ(expect_order(), 1);
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{100},
                                   whole.size() / 3, whole.size() / 2, whole.size() - 1}) {
      SCOPED_TRACE("cut to " + std::to_string(size));
      write_file(storage(name), whole.substr(0, size));
      EXPECT_EQ(expect_order(), 1);
    }
    for (std::size_t at = 3; at < whole.size(); at += whole.size() / 23) {
      SCOPED_TRACE("at " + std::to_string(at));
      std::string broken = whole;
      broken[at] = static_cast<char>(broken[at] ^ 0x40);
      write_file(storage(name), broken);
      const int verified = expect_order();
      // What fills a media up to the next block carries nothing.
      const bool media = name.find(".mtf") != std::string::npos;
      EXPECT_TRUE(verified == 1 || (media && restore("to").code == 0));
    }
    write_file(storage(name), whole);
  }
  EXPECT_EQ(expect_order(), 0);
}

// What can still be read comes back, and the rest is named.
TEST_F(Damage, OfOneFileLeavesTheOthers) {
  const std::string piece = [&] {
    for (const std::string& name : names_) {
      if (read_file(storage(name)).find(std::string(2000, 'd')) != std::string::npos) return name;
    }
    return std::string();
  }();
  std::string bytes = read_file(storage(piece));
  const std::size_t at = bytes.find(std::string(2000, 'd')) + 1000;
  bytes[at] = 'X';
  write_file(storage(piece), bytes);
  const Output verified = run(on_storage("verify"));
  EXPECT_EQ(verified.code, 1);
  EXPECT_EQ(verified.out.compare(0, piece.size() + 1, piece + ':'), 0) << verified.out;
  const Output restored = restore("to");
  EXPECT_EQ(restored.code, 1);
  EXPECT_NE(restored.err.find("not restored: " + source("/d/f3") + ": "), std::string::npos)
      << restored.err;
  Snapshot expected = source_, found = snapshot((dir_ / "to") + source());
  expected.erase("/d/f3");
  found.erase("/d/f3");
  EXPECT_EQ(difference(expected, found), "");
}

TEST_F(Bad_Input, VolumeThatIsAFile) {
  const std::string file = source("/f");
  write_file(file, "f");
  for (const char* threads : {"1", "2"}) {
    expect_failure(save({"--volume", "C:=" + file, "--source", "C:", "--threads", threads}),
                   "the source '" + file + "' stands for the volume 'C:' and isn't a directory");
  }
}

TEST_F(Bad_Input, WhatCantBeMeant) {
  const std::string top = source();
  const struct {
    Arguments more;
    std::string line;
  } cases[] = {
      {{"--volume", "C:=" + top, "--volume", "C:=/usr", "--source", "C:"},
       "--volume 'C:=/usr': the volume has another directory already"},
      {{"--shadow", "/=" + top, "--shadow", "/=/usr"},
       "--shadow '/=/usr': the volume has another directory already"},
      {{"--volume", "C:=" + top}, "--volume 'C:': no source is on this volume"},
      {{"--shadow", "C:=" + top}, "--shadow 'C:': no source is on this volume"},
      {{"--exclude-glob", ""}, "--exclude-glob: '' is empty or has a '[' without its ']'"},
      {{"--exclude-glob", "a[]b"}, "--exclude-glob: 'a[]b' is empty or has a '[' without its ']'"},
      {{"--level", "3"}, "--level: there is none without --compression lz4 or zstd"},
      {{"--channels", "0x1"}, "--channels: '0x1' isn't a plain number"},
      {{"--channels", "+1"}, "--channels: '+1' isn't a plain number"},
      {{"--channels", " 1"}, "--channels: ' 1' isn't a plain number"},
      {{"--base", "1"}, "The following arguments were not expected: --base 1"},
  };
  for (const auto& each : cases) {
    const Output output = save(each.more);
    EXPECT_EQ(output.code, 2);
    EXPECT_EQ(output.err, "mtf-agent: " + each.line + '\n');
    EXPECT_EQ(output.out, "");
  }
  EXPECT_EQ(run(on_storage("list", {"--seq", "010"})).err,
            "mtf-agent: --seq: '010' isn't a plain number\n");
  EXPECT_FALSE(fs::exists(storage()));
  const Output fine = save({"--exclude-glob", "[]x]", "--exclude-glob", "\\[", "--exclude-glob",
                            "[[:alpha:]-]y", "--shadow", "/=/", "--shadow", "/=/"});
  EXPECT_EQ(fine.code, 0) << fine.err;
}

TEST_F(Bad_Input, TheRightPathAndReason) {
  expect_failure(
      save({"--shadow", "/=" + source("/none")}),
      "the shadow '" + source("/none") + "' of the volume '/': No such file or directory");
  write_file(source("/f"), "f");
  expect_failure(save({"--shadow", "/=" + source("/f")}),
                 "the shadow '" + source("/f") + "' of the volume '/': Not a directory");
  Arguments arguments = full();
  *std::find(arguments.begin(), arguments.end(), dir_ / "tmp") = "/dev/null";
  expect_failure(run(arguments), "temporary directory '/dev/null': Not a directory");
}

TEST_F(Bad_Input, ASkippedFileHasItsReason) {
  if (!is_root()) GTEST_SKIP() << "needs root to become somebody else";
  for (const char* directory : {"/closed", "/open"}) fs::create_directory(source(directory));
  write_file(source("/closed-file"), "x");
  write_file(source("/file"), "x");
  ASSERT_EQ(::chmod(source("/closed-file").c_str(), 0), 0);
  ASSERT_EQ(::chmod(source("/closed").c_str(), 0), 0);
  const std::string program = dir_ / "mtf-agent";
  fs::copy_file(MTF_AGENT, program);
  for (const char* made : {"storage", "tmp"}) {
    fs::create_directory(dir_ / made);
    ASSERT_EQ(::chown((dir_ / made).c_str(), nobody, nobody), 0);
  }
  ASSERT_EQ(::chmod(dir_.path().c_str(), 0755), 0);
  Limits limits;
  limits.as_nobody = true;
  Arguments arguments = full();
  arguments[0] = program;
  const Output output = run(arguments, limits);
  EXPECT_EQ(output.code, 3);
  for (const char* line : {"/closed-file: Failed to open file: Permission denied\n",
                           "/closed: Failed to open directory: Permission denied\n"}) {
    EXPECT_NE(output.err.find("skipped: " + source(line)), std::string::npos) << output.err;
  }
}

}  // namespace
