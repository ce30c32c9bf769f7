// What can't be done is said in a clear line, with the right exit code, and harms nothing.
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <regex>

#include "tests/support/agent_run.h"
#include "tests/support/job_media.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;

class Bad_Input : public Agent_Run {
 protected:
  void expect_failure(const Output& output, const std::string& line) {
    EXPECT_EQ(output.code, 1);
    EXPECT_EQ(output.err, "error: " + line + '\n');
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(pieces(), Arguments{});
  }
};

TEST_F(Bad_Input, WrongUse) {
  const Arguments cases[] = {
      {"--no-such-option"},
      {"--channels", "0"},
      {"--channels", "1000"},
      {"--channels", "x"},
      {"--name", "a/b"},
      {"--name", "../demo"},
      {"--name", "a.1"},
      {"--name", ""},
      {"--source", ""},
      {"--compression", "gzip"},
      {"--level", "99"},
      {"--volume", "C:"},
      {"stray"},
  };
  for (const Arguments& each : cases) {
    Arguments all = agent({"full", "--storage", dir_ / "storage"});
    const auto without = [&](const std::string& option, const std::string& value) {
      if (each[0] != option) all.insert(all.end(), {option, value});
    };
    without("--name", "demo");
    without("--source", source());
    all.insert(all.end(), each.begin(), each.end());
    const Output output = run(all);
    EXPECT_EQ(output.code, 2) << each[0] << ' ' << each.back();
    EXPECT_EQ(output.err.compare(0, 11, "mtf-agent: "), 0) << output.err;
    EXPECT_EQ(lines_of(output.err).size(), 1U) << output.err;
    EXPECT_EQ(output.out, "");
  }
  EXPECT_FALSE(fs::exists(dir_ / "storage"));
  EXPECT_EQ(run(agent({})).code, 2);
  EXPECT_EQ(run(agent({"destroy"})).code, 2);
}

TEST_F(Bad_Input, Sources) {
  const std::string missing = source("/missing");
  expect_failure(save({"--source", missing}),
                 "the source '" + missing + "': No such file or directory");
  expect_failure(save({"--source", source(), "--source", missing}),
                 "the source '" + missing + "': No such file or directory");
  write_file(source("/f"), "f");
  expect_failure(save({"--source", source("/f/below")}),
                 "the source '" + source("/f/below") + "': Not a directory");
  fs::create_symlink("f", source("/link"));
  expect_failure(save({"--source", source("/link")}),
                 "the source '" + source("/link") +
                     "' is a symbolic link to 'f'; links aren't saved: name what it leads to");
  ASSERT_EQ(::mkfifo(source("/fifo").c_str(), 0644), 0);
  expect_failure(save({"--source", source("/fifo")}),
                 "the source '" + source("/fifo") + "' is neither a directory nor a file");
}

TEST_F(Bad_Input, RelativeSourceCountsFromTheWorkingDirectory) {
  write_file(source("/f"), "f");
  const Output output =
      run({"/bin/sh", "-c",
           "cd '" + dir_.path() +
               "' && exec '" MTF_AGENT
               "' full --source ./source/../source// --storage storage --name demo "
               "--tmp tmp --quiet"});
  EXPECT_EQ(output.code, 0) << output.err;
  EXPECT_EQ(restore("to").code, 0);
  EXPECT_EQ(read_file((dir_ / "to") + source("/f")), "f");
}

TEST_F(Bad_Input, Storages) {
  write_file(source("/f"), "f");
  const auto save_to = [&](const std::string& storage) {
    return run(agent({"full", "--source", source(), "--storage", storage, "--name", "demo", "--tmp",
                      dir_ / "tmp"}));
  };
  expect_failure(save_to(source("/f")), "storage '" + source("/f") + "': Not a directory");
  expect_failure(save_to(source("/f/s")), "storage '" + source("/f/s") + "': Not a directory");
  expect_failure(run(agent({"list", "--storage", dir_ / "none", "--name", "demo"})),
                 "storage '" + (dir_ / "none") + "': No such file or directory");
  EXPECT_FALSE(fs::exists(dir_ / "none"));
  EXPECT_EQ(read_file(source("/f")), "f");
}

TEST_F(Bad_Input, StorageOfSomebodyElse) {
  if (!is_root()) GTEST_SKIP() << "needs root to become somebody else";
  fs::create_directory(storage());
  const std::string program = dir_ / "mtf-agent";
  fs::copy_file(MTF_AGENT, program);
  ASSERT_EQ(::chmod(dir_.path().c_str(), 0755), 0);
  Limits limits;
  limits.as_nobody = true;
  Arguments arguments = full();
  arguments[0] = program;
  expect_failure(run(arguments, limits), "storage '" + (dir_ / "storage") + "': Permission denied");
  arguments[3] = dir_ / "new";
  expect_failure(run(arguments, limits), "storage '" + (dir_ / "new") + "': Permission denied");
}

TEST_F(Bad_Input, StorageWithoutRoom) {
  write_file(source("/f"), std::string(3 << 20, 'x'));
  Limits limits;
  limits.file_size = 1 << 20;
  const Output cut = run(full(), limits);
  EXPECT_EQ(cut.code, 1);
  EXPECT_EQ(lines_of(cut.err).back(), "error: writing failed: demo.1.0.mtf.part: File too large");
  EXPECT_EQ(pieces(), Arguments{});

  fs::create_directory(storage());
  if (::mount("tmpfs", storage().c_str(), "tmpfs", 0, "size=1m") != 0) return;
  for (const char* channels : {"1", "2"}) {
    const Output output = save({"--channels", channels});
    EXPECT_EQ(output.code, 1);
    EXPECT_TRUE(std::regex_search(
        output.err, std::regex("error: writing failed: demo.1.[0-9].mtf.part: No space left")))
        << output.err;
    EXPECT_EQ(pieces(), Arguments{});
  }
  fs::resize_file(source("/f"), 1000);
  EXPECT_EQ(save().code, 0) << "the room is free again";
  EXPECT_EQ(::umount(storage().c_str()), 0);
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
    EXPECT_EQ(save({"--channels", "2"}).code, 0);
    names_ = pieces();
    EXPECT_EQ(names_.size(), 4U);
    source_ = snapshot(source());
  }

  // What came back must be right, or the run must have said that it isn't.
  void expect_nothing_wrong(const Output& restored) const {
    const std::string top = (dir_ / "to") + source();
    const Snapshot found = fs::exists(top) ? snapshot(top) : Snapshot();
    if (restored.code == 0) {
      EXPECT_EQ(difference(source_, found), "");
    } else {
      EXPECT_EQ(restored.code, 1);
      EXPECT_NE(restored.err, "");
    }
    for (const auto& entry : found) {
      EXPECT_EQ(source_.count(entry.first), 1U) << entry.first;
    }
  }

  // Runs the three commands that read the job; the exit code of `verify`.
  int expect_order() {
    const Output verified = run(on_storage("verify"));
    EXPECT_TRUE(verified.code == 0 || verified.code == 1) << verified.err;
    if (verified.code == 1) {
      EXPECT_TRUE(std::regex_search(
          verified.out + verified.err,
          std::regex("demo[.]1[.][12][.](mtf|cat):[0-9]+: |is not complete|no job")))
          << verified.out << verified.err;
    }
    const Output listed = run(on_storage("list"));
    EXPECT_TRUE(listed.code == 0 || listed.code == 1) << listed.err;
    EXPECT_EQ(listed.code == 1, listed.err.find("error: ") != std::string::npos) << listed.err;
    fs::remove_all(dir_ / "to");
    const Output restored = restore("to");
    expect_nothing_wrong(restored);
    return verified.code;
  }

  static bool is_media(const std::string& name) { return name.find(".mtf") != std::string::npos; }

  Arguments names_;
  Snapshot source_;
};

TEST_F(Damage, PiecesThatAreCutOff) {
  for (const std::string& name : names_) {
    const std::string whole = read_file(storage(name));
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{100},
                                   whole.size() / 3, whole.size() / 2, whole.size() - 1}) {
      SCOPED_TRACE(name + " cut to " + std::to_string(size));
      write_file(storage(name), whole.substr(0, size));
      EXPECT_EQ(expect_order(), 1);
    }
    write_file(storage(name), whole);
  }
  EXPECT_EQ(expect_order(), 0);
}

TEST_F(Damage, PiecesThatAreMissing) {
  for (const std::string& name : names_) {
    SCOPED_TRACE(name);
    fs::rename(storage(name), dir_ / "aside");
    EXPECT_EQ(expect_order(), 1);
    fs::rename(dir_ / "aside", storage(name));
  }
}

TEST_F(Damage, BytesThatAreWrong) {
  for (const std::string& name : names_) {
    const std::string whole = read_file(storage(name));
    for (std::size_t at = 3; at < whole.size(); at += whole.size() / 23) {
      SCOPED_TRACE(name + " at " + std::to_string(at));
      std::string broken = whole;
      broken[at] = static_cast<char>(broken[at] ^ 0x40);
      write_file(storage(name), broken);
      const int verified = expect_order();
      // What fills a media up to the next block carries nothing.
      EXPECT_TRUE(verified == 1 || (is_media(name) && restore("to").code == 0));
    }
    write_file(storage(name), whole);
  }
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

class Restore_Safety : public Agent_Run {
 protected:
  // Everything in the test's directory but the storage.
  Snapshot around() const {
    Snapshot all = snapshot(dir_.path());
    for (auto it = all.begin(); it != all.end();) {
      it = it->first.compare(0, 8, "/storage") == 0 || it->first.compare(0, 4, "/to/") == 0
               ? all.erase(it)
               : std::next(it);
    }
    return all;
  }
};

TEST_F(Restore_Safety, NamesThatLeadOut) {
  fs::create_directories(storage());
  fs::create_directories(dir_ / "to/a");
  for (const std::string& name :
       {std::string("../../evil"), std::string(".."), std::string("."), "/" + (dir_ / "evil"),
        dir_ / "evil", std::string("a/../../../evil"), std::string("sub/evil")}) {
    SCOPED_TRACE(name);
    const Snapshot before = around();
    const test::Media_Bytes media = test::small_media(name);
    write_file(storage("demo.1.0.mtf"), media.data);
    write_file(storage("demo.1.0.cat"), media.catalog());
    const Output restored = restore("to");
    EXPECT_EQ(restored.code, 1);
    EXPECT_NE(restored.err, "");
    EXPECT_EQ(difference(before, around()), "");
    EXPECT_FALSE(fs::exists(dir_ / "to/evil"));
    EXPECT_FALSE(fs::exists(dir_ / "to/d/sub"));
  }
}

TEST_F(Restore_Safety, LinksInTheWay) {
  fs::create_directories(source("/d"));
  write_file(source("/d/f"), "f");
  write_file(source("/g"), "g");
  ASSERT_EQ(save().code, 0);
  fs::create_directory(dir_ / "outside");
  write_file(dir_ / "outside/kept", "kept");
  const std::string top = (dir_ / "to") + source();
  fs::create_directories(top);
  fs::create_directory_symlink(dir_ / "outside", top + "/d");
  fs::create_symlink(dir_ / "outside/kept", top + "/g");
  const Snapshot before = snapshot(dir_ / "outside");
  const Output restored = restore("to");
  EXPECT_EQ(restored.code, 1);
  EXPECT_NE(restored.err.find("not restored: " + source("/d/f") + ": "), std::string::npos)
      << restored.err;
  EXPECT_EQ(difference(before, snapshot(dir_ / "outside")), "");
  EXPECT_FALSE(fs::is_symlink(top + "/g"));
  EXPECT_EQ(read_file(top + "/g"), "g");
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
