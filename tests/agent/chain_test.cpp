// Chains of a full job and incremental ones, from the command line to the restored tree.
#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>
#include <random>

#include "tests/support/agent_run.h"
#include "tests/support/tree_changer.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;

// All but sockets: a job that starts from another says nothing of them.
Snapshot saveable(const Snapshot& all) {
  Snapshot out;
  for (const auto& entry : all) {
    if (entry.second.find(" date ") != std::string::npos) out.insert(entry);
  }
  return out;
}

class Chain : public Agent_Run, public testing::WithParamInterface<const char*> {
 protected:
  // A job sees a change by its time to the second: each new one gets a time of its own.
  void date_changes() {
    for (const auto& entry : fs::recursive_directory_iterator(source())) {
      struct stat now;
      ASSERT_EQ(::lstat(entry.path().c_str(), &now), 0);
      if (S_ISDIR(now.st_mode) || now.st_mtime < 1700000000) continue;
      const timespec times[2] = {{time_, 0}, {time_, 0}};
      ASSERT_EQ(::utimensat(AT_FDCWD, entry.path().c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
      ++time_;
    }
  }

  // Runs the command, which must fail with this line.
  void expect_failure(const Arguments& command, const std::string& line) {
    const Output output = run(command);
    EXPECT_EQ(output.code, 1);
    EXPECT_EQ(output.err, "error: " + line + '\n');
  }

  void damage(const std::string& piece, std::size_t at) {
    std::string bytes = read_file(storage(piece));
    ASSERT_LT(at, bytes.size());
    bytes[at] = static_cast<char>(bytes[at] ^ 1);
    write_file(storage(piece), bytes);
  }

  time_t time_ = 1600000000;
};

TEST_P(Chain, RestoresEachJob) {
  const unsigned int seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  Tree_Changer changer(source("/tree"), dir_ / "outside", seed);
  Tree_Changer::fill(source("/tree"), "first", 2);
  std::vector<Snapshot> stood;
  std::vector<std::string> told;
  const auto expect_job = [&](std::size_t seq) {
    const Arguments number{"--seq", std::to_string(seq)};
    EXPECT_EQ(restore("to", number).code, 0);
    expect_restored(stood[seq - 1], source(), told[seq - 1], number);
    fs::remove_all(dir_ / "to");
  };
  for (std::size_t seq = 1; seq <= 21; ++seq) {
    SCOPED_TRACE(seq);
    for (int changes = seq == 1 ? 0 : 25; changes > 0; --changes) changer.change();
    ASSERT_NO_FATAL_FAILURE(date_changes());
    stood.push_back(saveable(snapshot(source())));
    const Output saved =
        save({"--verbose", "--channels", GetParam()}, seq == 1 ? "full" : "incremental");
    ASSERT_EQ(saved.code, 0) << saved.err;
    told.push_back(saved.err);
    expect_job(seq);
  }
  for (std::size_t seq = 1; seq <= 21; ++seq) {
    SCOPED_TRACE(std::to_string(seq) + " when all were done");
    expect_job(seq);
    expect_verified({"--seq", std::to_string(seq)});
  }
}

INSTANTIATE_TEST_SUITE_P(Channels, Chain, testing::Values("1", "3"));

TEST_F(Chain, LooksBehindTheDateUnlessToldOtherwise) {
  const Arguments how{"--tmp", dir_ / "tmp", "--source", source()};
  write_file(source("/a"), "old");
  const auto date = fs::last_write_time(source("/a"));
  ASSERT_EQ(run(on_storage("full", how)).code, 0);
  write_file(source("/a"), "new");
  fs::last_write_time(source("/a"), date);
  ASSERT_EQ(run(full({"--base", "1"}, "incremental")).code, 0);
  ASSERT_EQ(restore("to").code, 0);
  EXPECT_EQ(read_file(back("/a")), "old");
  fs::remove_all(dir_ / "to");
  ASSERT_EQ(run(on_storage("incremental", how)).code, 0);
  ASSERT_EQ(restore("to").code, 0);
  EXPECT_EQ(read_file(back("/a")), "new");
}

// Sources that come and go between the jobs: nothing is taken for something else.
TEST_F(Chain, FollowsAChangedChoiceOfSources) {
  const Arguments names{"p", "q/r", "q/s", "t"};
  for (const std::string& name : names) {
    fs::create_directories(source('/' + name));
    write_file(source('/' + name + "/same"), name);
    fs::last_write_time(source('/' + name + "/same"), fs::last_write_time(source()));
  }
  const std::vector<std::vector<int>> choices = {{1, 3}, {0, 1, 2, 3}, {2}, {3, 0}, {0, 1, 2, 3}};
  for (const std::vector<int>& choice : choices) {
    Arguments arguments{"--channels", "2"};
    for (const int n : choice)
      arguments.insert(arguments.end(), {"--source", source('/' + names[n])});
    ASSERT_EQ(save(arguments, &choice == &choices[0] ? "full" : "incremental").code, 0);
    ASSERT_EQ(restore("to").code, 0);
    for (const int n : choice) EXPECT_EQ(read_file(back('/' + names[n] + "/same")), names[n]);
    fs::remove_all(dir_ / "to");
  }
}

TEST_F(Chain, RefusesABaseThatItCanNotUse) {
  write_file(source("/a"), "content");
  const std::string missing = dir_ / "storage";
  expect_failure(full({}, "incremental"), "storage '" + missing + "': No such file or directory");
  ASSERT_TRUE(fs::create_directory(missing)) << "by the job, which had nothing to save there";
  expect_failure(full({}, "incremental"),
                 "there is no complete job of 'demo' to start from: run a full job first");
  EXPECT_TRUE(fs::is_empty(dir_ / "tmp"));
  ASSERT_EQ(save({"--channels", "2"}).code, 0);
  expect_failure(full({}, "incremental"),
                 "job 1 of 'demo' has 2 channels, and an incremental job must have as many: "
                 "give --channels 2");
  expect_failure(full({"--channels", "2", "--base", "5"}, "incremental"),
                 "there is no job 5 of 'demo' to start from");
  fs::remove(storage("demo.1.2.cat"));
  expect_failure(full({"--channels", "2", "--base", "1"}, "incremental"),
                 "job 1 of 'demo' is not complete: an incremental job can't start from it");
  EXPECT_EQ(pieces().size(), 3U);
}

TEST_F(Chain, KeepsTheJobsThatLaterOnesNeed) {
  write_file(source("/a"), "content");
  const Arguments jobs[] = {full(), full({}, "incremental"), full({"--base", "1"}, "incremental"),
                            full(), full({}, "incremental")};
  for (const Arguments& job : jobs) ASSERT_EQ(run(job).code, 0);
  const auto remove = [&](const Arguments& which) { return on_storage("remove", which); };
  expect_failure(remove({"--seq", "1"}),
                 "job 1 of 'demo' is needed by jobs 2 and 3: --force removes it all the same");
  expect_failure(remove({"--seq", "4"}),
                 "job 4 of 'demo' is needed by job 5: --force removes it all the same");
  for (const char* seq : {"2", "3", "1"}) {
    EXPECT_EQ(run(remove({"--seq", seq})).code, 0) << "nobody needs it any more";
  }
  damage("demo.5.0.cat", 40);
  EXPECT_EQ(run(remove({"--seq", "4"})).code, 1) << "nothing tells that it isn't";
  EXPECT_EQ(run(remove({"--seq", "4", "--force"})).code, 0);
  EXPECT_EQ(run(on_storage("verify", {"--seq", "5"})).code, 1);
}

}  // namespace
