// Several jobs of one name, one at a time, and jobs that are stopped.
#include <signal.h>
#include <sys/stat.h>

#include <filesystem>

#include "services/json_spirit.h"
#include "tests/support/agent_run.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;

class Jobs : public Agent_Run {};
using Jobs_On = On_Each_Storage<Jobs>;

INSTANTIATE_TEST_SUITE_P(, Jobs_On, testing::Values("directory", "remote", "encrypted"));

const Arguments first_job{"demo.1.0.cat", "demo.1.0.mtf"};

TEST_P(Jobs_On, ComeAndGo) {
  write_file(source("/f"), "one");
  ASSERT_EQ(save().code, 0);
  write_file(source("/f"), "two");
  ASSERT_EQ(save({"--channels", "2"}).code, 0);
  const Output jobs = run(agent({"jobs", "--storage", storage_text(), "--json"}));
  const auto lines = lines_of(jobs.out);
  ASSERT_EQ(lines.size(), 2U) << jobs.out;
  for (unsigned int seq : {1U, 2U}) {
    const json_spirit::Value job = json_spirit::Value::parse(lines[seq - 1]);
    EXPECT_EQ(job.at("seq"), seq);
    EXPECT_EQ(job.at("channels"), seq);
    EXPECT_EQ(job.at("complete"), true);
  }
  EXPECT_EQ(restore("1", {"--seq", "1"}).code, 0);
  EXPECT_EQ(restore("2", {source("/f")}).code, 0);
  EXPECT_EQ(read_file((dir_ / "1") + source("/f")), "one");
  EXPECT_EQ(read_file((dir_ / "2") + source("/f")), "two");

  EXPECT_EQ(run(on_storage("remove", {"--seq", "2"})).code, 0);
  EXPECT_EQ(pieces(), first_job);
  for (const char* command : {"remove", "verify", "list"}) {
    const Output gone = run(on_storage(command, {"--seq", "2"}));
    EXPECT_EQ(gone.code, 1);
    EXPECT_EQ(gone.err, "error: there is no job 2 of 'demo'\n");
  }
  EXPECT_EQ(run(agent({"jobs", "--storage", storage_text(), "--name", "other"})).err,
            "error: there is no job of 'other'\n");
  const Output missing = restore("3", {"/not/there"});
  EXPECT_EQ(missing.code, 1);
  EXPECT_NE(missing.err.find("error: the job doesn't hold /not/there\n"), std::string::npos);
}

// A job that is held up keeps its lock, and goes on undisturbed.
TEST_F(Jobs, OneAtATime) {
  ASSERT_EQ(save().code, 0);
  make_endless(source("/endless"));
  Process job(full({"--plain"}));
  ASSERT_TRUE(wait_until([&] { return has_unfinished_piece() || job.has_ended(); }));
  job.signal(SIGSTOP);
  const Output second = save();
  EXPECT_EQ(second.code, 1);
  EXPECT_EQ(second.err, "error: a job of 'demo' is running\n");
  const Output removed = run(on_storage("remove", {"--seq", "1"}));
  EXPECT_EQ(removed.code, 1);
  EXPECT_EQ(removed.err, "error: a job of 'demo' is running\n");
  EXPECT_EQ(run(on_storage("verify")).code, 0) << "the job before can be read meanwhile";
  EXPECT_TRUE(has_unfinished_piece());
  job.signal(SIGCONT);
  job.signal(SIGINT);
  EXPECT_EQ(job.finish().code, 1);
  fs::remove(source("/endless"));
  EXPECT_EQ(save().code, 0) << "the lock is free";
}

// What has no catalog isn't taken for a job, and what came before is still there.
TEST_F(Jobs, AnIncompleteOneIsPassedOver) {
  write_file(source("/f"), "one");
  ASSERT_EQ(save().code, 0);
  ASSERT_EQ(save().code, 0);
  fs::remove(storage("demo.2.0.cat"));
  const std::string taken =
      "warning: job 2 is not complete: job 1 of 'demo' is taken in its place\n";
  for (const char* command : {"list", "verify"}) {
    const Output output = run(on_storage(command));
    EXPECT_EQ(output.code, 0);
    EXPECT_EQ(output.err, taken);
  }
  const Output named = run(on_storage("verify", {"--seq", "2"}));
  EXPECT_EQ(named.code, 1);
  EXPECT_EQ(named.err, "warning: job 2 of 'demo' is not complete\n");
  const auto states = lines_of(run(on_storage("jobs")).out);
  ASSERT_EQ(states.size(), 3U);
  EXPECT_NE(states[1].find("  complete"), std::string::npos);
  EXPECT_NE(states[2].find("  incomplete"), std::string::npos);
  ASSERT_EQ(save().code, 0);
  EXPECT_EQ(pieces(), (Arguments{"demo.1.0.cat", "demo.1.0.mtf", "demo.2.0.mtf", "demo.3.0.cat",
                                 "demo.3.0.mtf"}));
  EXPECT_EQ(run(on_storage("verify")).err, "");
}

// What a killed job leaves, the next one takes away, and nothing else.
TEST_F(Jobs, AfterAKilledOne) {
  make_endless(source("/endless"));
  Process job(full({"--plain"}));
  ASSERT_TRUE(wait_until([&] { return has_unfinished_piece() || job.has_ended(); }));
  job.signal(SIGKILL);
  EXPECT_EQ(job.finish().code, -1);
  EXPECT_TRUE(has_unfinished_piece());
  EXPECT_EQ(run(on_storage("list")).err, "error: there is no job of 'demo'\n");
  fs::remove(source("/endless"));
  Arguments others{"demo.part", "demo2.2.0.mtf.part", "notes.part", "demo.02.0.mtf.part"};
  for (const std::string& name : others) write_file(storage(name), "x");
  const Output next = save();
  EXPECT_EQ(next.code, 0);
  EXPECT_EQ(next.err.find("removed what a killed job left: demo.1.0.mtf.part, " + (dir_ / "tmp")),
            0U)
      << next.err;
  EXPECT_EQ(lines_of(next.err).size(), 1U);
  for (const std::string& name : others) EXPECT_TRUE(fs::remove(storage(name))) << name;
  EXPECT_EQ(pieces(), first_job);
  EXPECT_TRUE(fs::is_empty(dir_ / "tmp"));
}

// What else lies on a storage is no piece of a job, and what has the name of one may be no file.
TEST_F(Jobs, AmongOtherFiles) {
  fs::create_directory(storage());
  for (const char* name : {"demo2.99.0.mtf", "demo.011.0.mtf", "demo.12.0.mtf.bak"}) {
    write_file(storage(name), "12345");
  }
  ASSERT_EQ(save().code, 0);
  fs::create_symlink("demo.1.0.mtf", storage("demo.3.0.mtf"));
  fs::create_symlink("demo.1.0.cat", storage("demo.3.0.cat"));
  for (const char* name : {"demo.9.0.mtf", "demo.9.0.cat"}) {
    ASSERT_EQ(::mkfifo(storage(name).c_str(), 0600), 0);
  }
  for (const char* seq : {"3", "9"}) {
    const Output verified = run(on_storage("verify", {"--seq", seq}));
    EXPECT_EQ(verified.code, 1);
    EXPECT_NE(verified.out.find("0.cat:0: "), std::string::npos) << verified.out << verified.err;
    EXPECT_EQ(run(on_storage("remove", {"--seq", seq, "--force"})).code, 0);
  }
  EXPECT_EQ(read_file(storage("demo.12.0.mtf.bak")), "12345");
  write_file(storage("demo.65534.0.mtf"), "12345");
  ASSERT_EQ(save().code, 0);
  const Output used_up = save();
  EXPECT_EQ(used_up.code, 1);
  EXPECT_EQ(used_up.err, "error: the sequence numbers of 'demo' are used up: take another name\n");
  expect_verified({"--seq", "65535"});
}

TEST_F(Jobs, Excludes) {
  for (const char* directory : {"/a/b", "/a/keep", "/empty", "/empt"}) {
    fs::create_directories(source(directory));
  }
  for (const char* file : {"/a/b/x", "/a/f1", "/a/f", "/a/keep/b", "/one", "/onetwo"}) {
    write_file(source(file), file);
  }
  const Output saved = save({"--exclude", source("/a/b"), "--exclude", source("/one"),
                             "--exclude-glob", "f[0-9]*", "--exclude-glob", source("/empt?")});
  ASSERT_EQ(saved.code, 0);
  EXPECT_EQ(saved.err, "");
  ASSERT_EQ(restore("to").code, 0);
  Snapshot expected = snapshot(source());
  for (const char* out : {"/a/b", "/a/b/x", "/a/f1", "/one", "/empty"}) expected.erase(out);
  EXPECT_EQ(difference(expected, snapshot((dir_ / "to") + source())), "");
}

// Neither by its own path nor by another.
TEST_F(Jobs, StorageInsideTheSource) {
  write_file(source("/f"), "x");
  fs::create_directory_symlink(source(), dir_ / "way");
  const Arguments again = agent({"full", "--source", source(), "--storage", dir_ / "way/storage",
                                 "--name", "demo", "--tmp", dir_ / "way/tmp"});
  ASSERT_EQ(run(again).code, 0);
  ASSERT_EQ(run(again).code, 0);
  const Output listed = run(agent({"list", "--storage", source("/storage"), "--name", "demo"}));
  EXPECT_NE(listed.out.find("  " + source("/f") + '\n'), std::string::npos);
  EXPECT_EQ(listed.out.find("demo."), std::string::npos) << listed.out;
}

TEST_F(Jobs, RelativePathsCountFromTheWorkingDirectory) {
  write_file(source("/f"), "f");
  write_file(source("/x"), "x");
  const char* const script =
      "cd \"$0\" && exec \"$1\" full --source ./source/../source// --exclude source/x "
      "--storage storage --name demo --tmp tmp --quiet";
  EXPECT_EQ(run({"/bin/sh", "-c", script, dir_.path(), MTF_AGENT}).code, 0);
  EXPECT_EQ(restore("to").code, 0);
  EXPECT_EQ(read_file(back("/f")), "f");
  EXPECT_FALSE(fs::exists(back("/x")));
}

// A volume has its directory, and is looked at in its shadow.
TEST_F(Jobs, VolumesAndShadows) {
  for (const char* place : {"/c", "/snap=1"}) {
    fs::create_directories(source(place) + "/data");
    write_file(source(place) + "/data/f", place);
  }
  write_file(source("/snap=1/data/new"), "");
  const Output saved = save({"--volume", "C:=" + source("/c"), "--shadow",
                             "C:=" + source("/snap=1"), "--source", "C:\\data"});
  EXPECT_EQ(saved.code, 0) << saved.err;
  EXPECT_EQ(restore("to").code, 0);
  EXPECT_EQ(read_file(dir_ / "to/C/data/f"), "/snap=1");
  EXPECT_TRUE(fs::exists(dir_ / "to/C/data/new"));
}

// What is named is saved with all below, though its place is left out else.
TEST_F(Jobs, APlaceThatIsLeftOutUnlessItIsNamed) {
  const Output saved = save({"--source", "/proc/sys/fs"});
  EXPECT_TRUE(saved.code == 0 || saved.code == 3) << saved.err;
  EXPECT_EQ(restore("to").code, 0);
  EXPECT_TRUE(fs::exists(dir_ / "to/proc/sys/fs/inotify/max_user_watches"));
}

}  // namespace
