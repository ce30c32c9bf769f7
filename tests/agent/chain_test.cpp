// Chains of a full job and incremental ones, from the command line to the restored tree.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <random>
#include <sstream>

#include "agent/command_line.h"
#include "agent/exit_code.h"
#include "tests/support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using test_support::read_file;
using test_support::Temp_Dir;
using test_support::write_file;
using Arguments = std::vector<std::string>;

// What a restore must bring back: for each path below the top its content and time, or that it is a
// directory. Only the first name of a file with several is saved: the one that a walk meets first.
using Tree = std::map<std::string, std::string>;

void add_tree(const fs::path& at, const std::string& below, std::map<ino_t, std::string>& first,
              Tree& tree) {
  std::vector<fs::path> files, directories;
  for (const auto& item : fs::directory_iterator(at)) {
    (fs::is_directory(item.symlink_status()) ? directories : files).push_back(item.path());
  }
  std::sort(files.begin(), files.end());
  std::sort(directories.begin(), directories.end());
  for (const fs::path& file : files) {
    struct stat stat;
    ASSERT_EQ(::lstat(file.c_str(), &stat), 0);
    if (!S_ISREG(stat.st_mode)) continue;
    const std::string path = below + file.filename().string();
    if (!first.emplace(stat.st_ino, path).second) continue;
    tree[path] = std::to_string(stat.st_mtime) + ' ' + read_file(file);
  }
  for (const fs::path& directory : directories) {
    const std::string path = below + directory.filename().string() + '/';
    tree[path] = "directory";
    add_tree(directory, path, first, tree);
  }
}

Tree tree_of(const fs::path& top) {
  std::map<ino_t, std::string> first;
  Tree tree;
  add_tree(top, "", first, tree);
  return tree;
}

// A tree that changes at random. Each file that is made or changed has a time of its own.
class Changing_Tree {
 public:
  Changing_Tree(const fs::path& top, unsigned int seed) : top_(top), random_(seed) {
    fs::create_directories(top_);
    for (int i = 0; i < 12; ++i) add_directory();
    for (int i = 0; i < 60; ++i) add_file();
  }

  void change() {
    const int changes = pick(25);
    for (int i = 0; i < changes; ++i) change_one();
  }

 private:
  int pick(int below) { return static_cast<int>(random_() % static_cast<unsigned int>(below)); }

  // Short names with few letters, so that names come back, and of which some sort oddly.
  std::string name() {
    static const char* const parts[] = {"a", "b", "a.x", "a b", "a-", "\xC3\xA9", "B", "~", "\xFF"};
    std::string out = parts[pick(9)];
    if (pick(2) == 0) out += std::to_string(pick(4));
    return out;
  }

  std::vector<fs::path> all(bool directories) {
    std::vector<fs::path> out;
    if (directories) out.push_back(top_);
    for (const auto& item : fs::recursive_directory_iterator(top_)) {
      if (fs::is_directory(item.symlink_status()) == directories) out.push_back(item.path());
    }
    std::sort(out.begin(), out.end());
    return out;
  }

  fs::path any(bool directory) {
    const std::vector<fs::path> paths = all(directory);
    return paths.empty() ? fs::path() : paths[static_cast<std::size_t>(pick(int(paths.size())))];
  }

  // A path where nothing is yet.
  fs::path free_path() {
    fs::path path;
    do {
      path = any(true) / name();
    } while (fs::exists(fs::symlink_status(path)));
    return path;
  }

  void fill(const fs::path& path) {
    if (fs::is_symlink(fs::symlink_status(path))) fs::remove(path);
    write_file(path, std::string(static_cast<std::size_t>(pick(5000)), char('a' + pick(26))) +
                         std::to_string(now_));
    const timespec time{now_++, 0};
    const timespec times[2] = {time, time};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
  }

  void add_file() { fill(free_path()); }
  void add_directory() { fs::create_directory(free_path()); }

  void replace(const fs::path& file) {
    fs::remove(file);
    if (pick(2) == 0) {
      fs::create_directory(file);
      fill(file / name());
    } else {
      fs::create_symlink("somewhere", file);
    }
  }

  void move(const fs::path& from) {
    const fs::path to = free_path();
    const std::string inside = from.string() + '/';
    if (from != top_ && to.string().compare(0, inside.size(), inside) != 0) fs::rename(from, to);
  }

  void change_one() {
    const fs::path file = any(false);
    const fs::path directory = any(true);
    const int what = pick(20);
    if (what < 5 || file.empty()) return add_file();
    if (what < 9) return fill(file);
    if (what < 11) return void(fs::remove(file));
    if (what < 13) return move(file);
    if (what < 14) return replace(file);
    if (what < 16) return fs::create_hard_link(file, free_path());
    if (what < 17) return add_directory();
    if (what < 19) return move(directory);
    if (directory != top_ && pick(3) == 0) fs::remove_all(directory);
  }

  fs::path top_;
  std::mt19937 random_;
  time_t now_ = 1600000000;
};

class Chain : public testing::Test {
 protected:
  // Runs a command on the chain. `error_` has what it said on standard error.
  int run(const std::string& command, const Arguments& more) {
    std::ostringstream out, err;
    agent::Console console(out, err);
    Arguments all{command, "--storage", dir_ / "storage", "--name", "chain"};
    all.insert(all.end(), more.begin(), more.end());
    const int code = agent::run(all, console);
    out_ = out.str();
    error_ = err.str();
    return code;
  }

  int save(const std::string& command, int channels, Arguments more = {}) {
    for (const std::string& argument :
         {std::string("--source"), source_, std::string("--tmp"), dir_ / "tmp",
          std::string("--channels"), std::to_string(channels), std::string("--quiet")}) {
      more.push_back(argument);
    }
    return run(command, more);
  }

  Tree restored(unsigned int seq) {
    const std::string to = dir_ / "restored";
    EXPECT_EQ(run("restore", {"--seq", std::to_string(seq), "--to", to}), agent::exit_done)
        << error_;
    const Tree tree = tree_of(to + source_);
    platform::remove_tree(to);
    return tree;
  }

  std::vector<std::string> pieces() {
    std::vector<std::string> names;
    for (const auto& item : fs::directory_iterator(dir_ / "storage")) {
      const std::string name = item.path().filename();
      if (name[0] != '.') names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  void damage(const std::string& piece, std::size_t at) {
    std::string bytes = read_file(dir_ / ("storage/" + piece));
    ASSERT_LT(at, bytes.size());
    bytes[at] = static_cast<char>(bytes[at] ^ 1);
    write_file(dir_ / ("storage/" + piece), bytes);
  }

  void run_chain(int channels, unsigned int seed) {
    SCOPED_TRACE("seed " + std::to_string(seed) + ", channels " + std::to_string(channels));
    Changing_Tree tree(source_, seed);
    std::vector<Tree> stood{tree_of(source_)};
    ASSERT_EQ(save("full", channels), agent::exit_done) << error_;
    for (unsigned int seq = 2; seq <= 21; ++seq) {
      ASSERT_NO_FATAL_FAILURE(tree.change());
      stood.push_back(tree_of(source_));
      ASSERT_EQ(save("incremental", channels), agent::exit_done) << error_;
      ASSERT_EQ(restored(seq), stood.back()) << "job " << seq;
    }
    for (unsigned int seq = 1; seq <= 21; ++seq) {
      EXPECT_EQ(restored(seq), stood[seq - 1]) << "job " << seq << " when all were done";
      EXPECT_EQ(run("verify", {"--seq", std::to_string(seq)}), agent::exit_done) << out_;
    }
  }

  Temp_Dir dir_;
  const std::string source_ = dir_ / "source";
  std::string out_, error_;
};

TEST_F(Chain, RestoresEachJobOfOneChannel) {
  run_chain(1, std::random_device()());
}

TEST_F(Chain, RestoresEachJobOfThreeChannels) {
  run_chain(3, std::random_device()());
}

TEST_F(Chain, SavesAFileWhoseFirstNameWentUnderItsOther) {
  fs::create_directory(source_);
  write_file(source_ + "/a", "content");
  fs::create_hard_link(source_ + "/a", source_ + "/b");
  ASSERT_EQ(save("full", 1), agent::exit_done);
  fs::remove(source_ + "/a");
  fs::create_hard_link(source_ + "/b", source_ + "/c");
  ASSERT_EQ(save("incremental", 1), agent::exit_done);
  EXPECT_EQ(restored(2), tree_of(source_));
  EXPECT_EQ(tree_of(source_).count("b"), 1U);
}

// Sources that come and go between the jobs: nothing is taken for something else.
TEST_F(Chain, FollowsAChangedChoiceOfSources) {
  const Changing_Tree tree(source_, 1);
  const std::vector<std::string> names = {"p", "q/r", "q/s", "t"};
  for (const std::string& name : names) fs::create_directories(source_ + "/" + name);
  for (const std::string& name : names) write_file(source_ + "/" + name + "/same", name);
  const timespec times[2] = {{1600000000, 0}, {1600000000, 0}};
  for (const std::string& name : names) {
    ASSERT_EQ(::utimensat(AT_FDCWD, (source_ + "/" + name + "/same").c_str(), times, 0), 0);
  }
  const std::vector<std::vector<int>> choices = {{1, 3}, {0, 1, 2, 3}, {2}, {3, 0}, {0, 1, 2, 3}};
  for (unsigned int seq = 1; seq <= choices.size(); ++seq) {
    Arguments arguments{"--quiet", "--channels", "2", "--tmp", dir_ / "tmp"};
    for (const int choice : choices[seq - 1]) {
      arguments.push_back("--source");
      arguments.push_back(source_ + "/" + names[static_cast<std::size_t>(choice)]);
    }
    ASSERT_EQ(run(seq == 1 ? "full" : "incremental", arguments), agent::exit_done) << error_;
    const Tree tree_back = restored(seq);
    for (const int choice : choices[seq - 1]) {
      const std::string& name = names[static_cast<std::size_t>(choice)];
      EXPECT_EQ(tree_back.at(name + "/same"), "1600000000 " + name) << seq;
    }
  }
}

TEST_F(Chain, RefusesABaseThatItCanNotUse) {
  fs::create_directory(source_);
  write_file(source_ + "/a", "content");
  EXPECT_EQ(save("incremental", 1), agent::exit_failed);
  EXPECT_EQ(error_,
            "error: there is no complete job of 'chain' to start from: run a full job first\n");
  ASSERT_EQ(save("full", 2), agent::exit_done);
  const auto before = pieces();
  EXPECT_EQ(save("incremental", 1), agent::exit_failed);
  EXPECT_EQ(error_,
            "error: job 1 of 'chain' has 2 channels, and an incremental job must have as many: "
            "give --channels 2\n");
  EXPECT_EQ(save("incremental", 2, {"--base", "5"}), agent::exit_failed);
  EXPECT_EQ(error_, "error: there is no job 5 of 'chain' to start from\n");
  fs::remove(dir_ / "storage/chain.1.2.cat");
  EXPECT_EQ(save("incremental", 2, {"--base", "1"}), agent::exit_failed);
  EXPECT_EQ(error_,
            "error: job 1 of 'chain' is not complete: an incremental job can't start from it\n");
  EXPECT_EQ(pieces().size(), before.size() - 1);
}

// Wherever the catalog of the base is damaged, the storage stays as it was and the user reads
// where.
TEST_F(Chain, LeavesTheStorageAsItWasWhenTheBaseIsDamaged) {
  fs::create_directory(source_);
  for (int i = 0; i < 50; ++i) write_file(source_ + "/f" + std::to_string(i), "content");
  ASSERT_EQ(save("full", 1), agent::exit_done);
  const auto before = pieces();
  const std::string sound = read_file(dir_ / "storage/chain.1.0.cat");
  for (const std::size_t at :
       {std::size_t{10}, std::size_t{100}, sound.find("FILE") + 20, sound.size() - 20}) {
    write_file(dir_ / "storage/chain.1.0.cat", sound);
    damage("chain.1.0.cat", at);
    EXPECT_EQ(save("incremental", 1), agent::exit_failed) << at;
    EXPECT_NE(error_.find("Earlier catalog can't be used, "), std::string::npos) << error_;
    EXPECT_EQ(pieces(), before);
  }
}

TEST_F(Chain, KeepsTheJobsThatLaterOnesNeed) {
  fs::create_directory(source_);
  write_file(source_ + "/a", "content");
  ASSERT_EQ(save("full", 1), agent::exit_done);
  ASSERT_EQ(save("incremental", 1), agent::exit_done);
  ASSERT_EQ(save("incremental", 1, {"--base", "1"}), agent::exit_done);
  ASSERT_EQ(save("full", 1), agent::exit_done);
  ASSERT_EQ(save("incremental", 1), agent::exit_done);
  EXPECT_EQ(run("remove", {"--seq", "1"}), agent::exit_failed);
  EXPECT_EQ(error_,
            "error: job 1 of 'chain' is needed by jobs 2 and 3: --force removes it all the same\n");
  EXPECT_EQ(run("remove", {"--seq", "4"}), agent::exit_failed);
  EXPECT_EQ(error_,
            "error: job 4 of 'chain' is needed by job 5: --force removes it all the same\n");
  EXPECT_EQ(run("remove", {"--seq", "2"}), agent::exit_done) << "job 3 started from job 1";
  EXPECT_EQ(run("remove", {"--seq", "3"}), agent::exit_done);
  EXPECT_EQ(run("remove", {"--seq", "1"}), agent::exit_done) << "nobody needs it any more";
  damage("chain.5.0.cat", 40);
  EXPECT_EQ(run("remove", {"--seq", "4"}), agent::exit_failed) << "nothing tells that it isn't";
  EXPECT_EQ(run("remove", {"--seq", "4", "--force"}), agent::exit_done);
  EXPECT_EQ(run("verify", {"--seq", "5"}), agent::exit_failed);
}

}  // namespace
