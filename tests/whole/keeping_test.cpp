// Keeping jobs: what of them is sound, what can go, and copies elsewhere.
#include <signal.h>

#include <filesystem>

#include "agent/directory_storage.h"
#include "agent/job_copier.h"
#include "services/json_spirit.h"
#include "tests/support/agent_run.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;

class Keeping : public Agent_Run {
 protected:
  // Job 1 is full, 2 takes from it, 3 is full, 4 holds nothing of 3, 5 holds something of 4.
  Keeping() {
    fs::last_write_time(file("a"), {});
    save_ok("full");
    file("b");
    save_ok("incremental");
    fs::remove(source("/a"));
    save_ok("full");
    for (const char* name : {"b", "c"}) fs::last_write_time(file(name), {});
    save_ok("incremental");
    file("b");
    save_ok("incremental");
  }

  std::string file(const std::string& name) const {
    write_file(source('/' + name), name + std::to_string(pieces().size()));
    return source('/' + name);
  }

  void save_ok(const char* command) const { ASSERT_EQ(save({}, command).code, 0); }

  Output copy(const Arguments& more = {}) const {
    Arguments all = on_storage("copy", {"--to", dir_ / "copies"});
    all.insert(all.end(), more.begin(), more.end());
    return run(all);
  }

  Output on_copies(const char* command) const {
    return run(
        test_support::agent({command, "--storage", dir_ / "copies", "--name", "demo", "--all"}));
  }

  std::string copied(const std::string& name) const { return dir_ / "copies/" + name; }

  // Changes one byte in the middle of a file.
  static void damage(const std::string& path) {
    std::string bytes = read_file(path);
    bytes[bytes.size() / 2] = static_cast<char>(bytes[bytes.size() / 2] ^ 1);
    write_file(path, bytes);
  }
};

TEST_F(Keeping, JobsTellWhatTheyNeed) {
  fs::remove(storage("demo.2.0.mtf"));
  const struct {
    bool incremental;
    unsigned int base, files, bytes;
    std::vector<unsigned int> needed_by, lacks;
  } wanted[] = {{false, 0, 1, 2, {2}, {}},
                {true, 1, 2, 4, {}, {}},
                {false, 0, 1, 2, {}, {}},
                {true, 3, 2, 4, {5}, {}},
                {true, 4, 2, 4, {}, {}}};
  const auto lines = lines_of(run(on_storage("jobs", {"--json"})).out);
  ASSERT_EQ(lines.size(), std::size(wanted));
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const json_spirit::Value job = json_spirit::Value::parse(lines[i]);
    EXPECT_EQ(job.at("incremental"), wanted[i].incremental) << lines[i];
    EXPECT_EQ(job.at("base"), wanted[i].base) << lines[i];
    EXPECT_EQ(job.at("files"), wanted[i].files) << lines[i];
    EXPECT_EQ(job.at("bytes"), wanted[i].bytes) << lines[i];
    EXPECT_EQ(job.at("needed_by"), json_spirit::Value(wanted[i].needed_by)) << lines[i];
    EXPECT_EQ(job.at("time") == 0, i == 1) << lines[i];
  }
}

TEST_F(Keeping, PruneLeavesWhatIsNeeded) {
  const Arguments all = pieces();
  EXPECT_EQ(run(on_storage("prune")).code, 2);
  EXPECT_EQ(run(on_storage("prune", {"--keep-last", "0"})).code, 2);
  const Output shown = run(on_storage("prune", {"--keep-last", "1", "--dry-run"}));
  EXPECT_EQ(shown.code, 0);
  const auto table = lines_of(shown.out);
  ASSERT_EQ(table.size(), 7U);
  EXPECT_NE(table[3].find("  remove"), std::string::npos) << shown.out;
  EXPECT_NE(table[4].find("  keep    needed by 5"), std::string::npos) << shown.out;
  EXPECT_NE(table[5].find("  keep    last"), std::string::npos) << shown.out;
  EXPECT_EQ(table[6].substr(0, 31), "would remove 3 jobs of 'demo', ");
  EXPECT_EQ(pieces(), all);
  const Output done = run(on_storage("prune", {"--keep-last", "1"}));
  EXPECT_EQ(done.code, 0);
  EXPECT_EQ(lines_of(done.out)[6].substr(0, 26), "removed 3 jobs of 'demo', ");
  EXPECT_EQ(pieces(), (Arguments{"demo.4.0.cat", "demo.4.0.mtf", "demo.5.0.cat", "demo.5.0.mtf"}));
  EXPECT_EQ(run(on_storage("verify", {"--all"})).code, 0);
  ASSERT_EQ(restore("to").code, 0);
  EXPECT_EQ(difference(snapshot(source()), snapshot(back())), "");
  // What can't be removed ends it, and nothing older goes.
  ASSERT_EQ(save({}).code, 0);
  fs::remove(storage("demo.5.0.mtf"));
  fs::create_directory(storage("demo.5.0.mtf"));
  EXPECT_EQ(run(on_storage("prune", {"--keep-last", "1"})).code, 1);
  EXPECT_TRUE(fs::exists(storage("demo.4.0.cat")));
}

TEST_F(Keeping, VerifyAllNamesTheBadOnes) {
  damage(storage("demo.1.0.mtf"));
  fs::remove(storage("demo.3.0.cat"));
  const Output verified = run(on_storage("verify", {"--all"}));
  EXPECT_EQ(verified.code, 1);
  const auto lines = lines_of(verified.out);
  ASSERT_GE(lines.size(), 8U);
  std::string states;
  for (std::size_t i = lines.size() - 6; i + 1 < lines.size(); ++i) {
    states += lines[i].substr(lines[i].rfind("  "));
  }
  EXPECT_EQ(states, "  damaged  sound  incomplete  sound  sound") << verified.out;
  EXPECT_EQ(lines.front().substr(0, 13), "demo.1.0.mtf:") << verified.out;
  EXPECT_EQ(lines.back(), "5 jobs of 'demo', 2 not sound");
}

TEST_F(Keeping, CopiesAreTheSameBytes) {
  EXPECT_EQ(copy({"9"}).err, "error: there is no complete job 9 of 'demo'\n");
  EXPECT_FALSE(fs::exists(dir_ / "copies"));
  EXPECT_EQ(copy({"2"}).code, 0);
  EXPECT_TRUE(fs::exists(copied("demo.1.0.cat")));  // which it needs
  EXPECT_FALSE(fs::exists(copied("demo.3.0.cat")));
  fs::remove(copied("demo.2.0.mtf"));
  ASSERT_EQ(copy().code, 0);
  for (const std::string& name : pieces()) {
    EXPECT_EQ(read_file(copied(name)), read_file(storage(name))) << name;
  }
  EXPECT_EQ(on_copies("verify").code, 0);
  EXPECT_EQ(lines_of(copy().out).back(), "copied 0 jobs of 'demo', 0 B; 5 were there already");
  // Another job of the number, and one that needs it.
  damage(copied("demo.4.0.cat"));
  fs::remove(copied("demo.5.0.cat"));
  fs::remove(copied("demo.5.0.mtf"));
  const std::string other = read_file(copied("demo.4.0.cat"));
  const Output refused = copy();
  EXPECT_EQ(refused.code, 1);
  EXPECT_EQ(refused.err, "error: job 4 of 'demo' isn't copied: storage '" + (dir_ / "copies") +
                             "' has another job 4: demo.4.0.cat differs\n"
                             "error: job 5 of 'demo' isn't copied: it needs job 4, which isn't "
                             "copied\n");
  EXPECT_EQ(read_file(copied("demo.4.0.cat")), other);
  EXPECT_FALSE(fs::exists(copied("demo.5.0.mtf")));
  // The rest of a job that is another's.
  damage(copied("demo.1.0.mtf"));
  fs::remove(copied("demo.1.0.cat"));
  EXPECT_NE(copy({"1"}).err.find("another job 1: demo.1.0.mtf differs"), std::string::npos);
  fs::create_directory_symlink(dir_ / "storage", dir_ / "again");
  EXPECT_EQ(run(on_storage("copy", {"--to", dir_ / "again"})).err,
            "error: --to is the storage that the jobs are on\n");
}

// A piece too long for any copy to end: ended in order, and killed.
TEST_F(Keeping, AnEndedCopyLeavesNoJob) {
  fs::resize_file(storage("demo.1.0.mtf"), std::uintmax_t{4} << 40);
  for (const int how : {SIGTERM, SIGKILL}) {
    Process process(on_storage("copy", {"--to", dir_ / "copies", "1"}));
    ASSERT_TRUE(
        wait_until([&] { return fs::exists(copied("demo.1.0.mtf.part")) || process.has_ended(); }));
    process.signal(how);
    EXPECT_EQ(process.finish().code, how == SIGKILL ? -1 : 1);
    EXPECT_EQ(fs::exists(copied("demo.1.0.mtf.part")), how == SIGKILL);
    EXPECT_FALSE(fs::exists(copied("demo.1.0.cat")));
  }
}

// Gives back one byte that was never written.
class Lying_Storage final : public agent::Directory_Storage {
 public:
  using Directory_Storage::Directory_Storage;

  std::unique_ptr<MTF::IRandom_Reader> reopen(const std::string& name,
                                              std::string& error) override {
    return std::make_unique<Reader>(Directory_Storage::reopen(name, error));
  }

 private:
  class Reader final : public MTF::IRandom_Reader {
   public:
    explicit Reader(std::unique_ptr<MTF::IRandom_Reader> reader) : reader_(std::move(reader)) {}
    unsigned long long size() const override { return reader_->size(); }
    long long read_at(unsigned long long offset, char* data, unsigned long long size) override {
      const long long count = reader_->read_at(offset, data, size);
      if (offset == 0) data[100] = static_cast<char>(data[100] ^ 1);
      return count;
    }

   private:
    const std::unique_ptr<MTF::IRandom_Reader> reader_;
  };
};

TEST_F(Keeping, WhatTheTargetLostIsNoCopy) {
  agent::Directory_Storage from(dir_ / "storage");
  Lying_Storage to(dir_ / "copies");
  std::string error;
  ASSERT_TRUE(from.open_for_reading(error) && to.open_for_job("demo", true, error)) << error;
  agent::Job_Copier copier(from, to, [] { return true; });
  ASSERT_TRUE(copier.open("demo", error)) << error;
  EXPECT_EQ(copier.copy(1, error), agent::Job_Copier::Outcome::failed);
  EXPECT_EQ(error, "demo.1.0.mtf: storage '" + (dir_ / "copies") +
                       "' gives back other bytes than were written");
  for (const auto& entry : fs::directory_iterator(dir_ / "copies")) {
    EXPECT_EQ(entry.path().filename(), ".demo.lock");
  }
}

}  // namespace
