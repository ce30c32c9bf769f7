// Jobs that are killed at any moment.
#include <signal.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <random>

#include "agent/directory_storage.h"
#include "mtf/reader/jobs.h"
#include "tests/support/agent_run.h"
#include "tests/support/traced.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;
using std::chrono::microseconds;
using std::chrono::steady_clock;

class Kill : public Agent_Run {
 protected:
  Kill() {
    make_many(source(), 150);
    write_file(source("/large"), std::string(6 << 20, 'x'));
    fs::create_directory(dir_ / "storage");
    std::string error;
    EXPECT_TRUE(storage_.open_for_reading(error)) << error;
  }

  std::vector<MTF::Job_Pieces> jobs(const std::string& stem) {
    std::vector<MTF::Job_Pieces> found;
    std::string error;
    EXPECT_TRUE(MTF::find_jobs(storage_, stem, found, error)) << error;
    return found;
  }

  // Whatever has its name is sound; an incomplete job lacks pieces and nothing else.
  void expect_sound(const std::string& stem) {
    for (const MTF::Job_Pieces& job : jobs(stem)) {
      MTF::verify_job(storage_, job, [&](const MTF::Fault& fault) {
        EXPECT_TRUE(!job.complete && !fs::exists(storage(fault.piece)))
            << fault.piece << ':' << fault.position << ' ' << fault.text;
      });
    }
  }

  ::agent::Directory_Storage storage_{dir_ / "storage"};
};

constexpr int kills = is_sanitized ? 20 : 200;

struct Kind {
  const char *command, *stem, *channels, *threads;
};

constexpr Kind kinds[] = {{"full", "one", "1", "1"},
                          {"full", "two", "2", "2"},
                          {"incremental", "one", "1", "2"},
                          {"incremental", "two", "2", "1"}};

class Random_Kill : public Kill {
 protected:
  Arguments job(const Kind& kind) const {
    Arguments all = full({"--channels", kind.channels, "--threads", kind.threads}, kind.command);
    *std::find(all.begin(), all.end(), "demo") = kind.stem;
    return all;
  }

  // A few files differ from job to job.
  void change(int n) {
    for (int i = 0; i < 5; ++i) {
      const std::string path = source("/changing" + std::to_string((n + i) % 20));
      write_file(path, std::string(100000, static_cast<char>('a' + n % 26)));
      const timeval times[2] = {{1000000 + n, 0}, {1000000 + n, 0}};
      EXPECT_EQ(::utimes(path.c_str(), times), 0);
    }
  }

  // The job that follows goes well and leaves nothing but itself.
  void expect_next(const Kind& kind) {
    const auto before = jobs(kind.stem);
    const unsigned int newest = before.empty() ? 0 : before.back().seq;
    const Output next = run(job(kind));
    ASSERT_EQ(next.code, 0) << next.err;
    const auto after = jobs(kind.stem);
    ASSERT_EQ(after.size(), before.size() + 1);
    EXPECT_TRUE(after.back().complete);
    EXPECT_EQ(after.back().seq, newest + 1);
    for (std::size_t i = 0; i < before.size(); ++i) {
      EXPECT_EQ(after[i].channels, before[i].channels);
      EXPECT_EQ(after[i].complete, before[i].complete);
    }
    for (const std::string& name : pieces()) {
      const bool other = name.compare(0, 3, kind.stem) != 0;
      EXPECT_TRUE(other || name.find(".part") == std::string::npos) << name;
    }
    EXPECT_TRUE(fs::is_empty(dir_ / "tmp"));
  }

  void start_chain(const char* stem) {
    ::agent::Directory_Storage storage(dir_ / "storage");
    std::string error;
    ASSERT_TRUE(storage.open_for_job(stem, false, error)) << error;
    for (const MTF::Job_Pieces& each : jobs(stem)) {
      EXPECT_TRUE(remove_job(storage, stem, each.seq, error)) << error;
    }
  }
};

TEST_F(Random_Kill, LeavesNoDamageAndNothingInTheWay) {
  const unsigned int seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  microseconds length[std::size(kinds)];
  for (std::size_t i = 0; i < std::size(kinds); ++i) {
    const auto start = steady_clock::now();
    ASSERT_EQ(run(job(kinds[i])).code, 0);
    length[i] = std::chrono::duration_cast<microseconds>(steady_clock::now() - start);
  }
  int killed = 0;
  for (int n = 0; n < kills && !HasFailure(); ++n) {
    const std::size_t i = random() % std::size(kinds);
    const Kind& kind = kinds[i];
    change(n);
    Process process(job(kind));
    ::usleep(static_cast<useconds_t>(random() % static_cast<unsigned int>(length[i].count())));
    process.signal(SIGKILL);
    killed += process.finish().code == -1;
    for (const char* stem : {"one", "two"}) expect_sound(stem);
    expect_next(kind);
    expect_sound(kind.stem);
    if (jobs(kind.stem).size() < 5) continue;
    start_chain(kind.stem);
    ASSERT_EQ(run(job(kinds[i % 2])).code, 0);
  }
  EXPECT_GT(killed, 0);
  RecordProperty("killed", killed);
}

// A job that dies while its pieces get their names is incomplete, and stands in nobody's way.
TEST_F(Kill, WhilePiecesGetTheirNames) {
  if (!can_trace()) GTEST_SKIP() << "no process may watch another here";
  const Arguments two{"--channels", "2"};
  const auto remove = [&](unsigned int seq) {
    return run(on_storage("remove", {"--seq", std::to_string(seq)})).code;
  };
  ASSERT_EQ(save(two).code, 0);
  for (unsigned int n = 1; n <= 4; ++n) {
    const std::string fault = "renameat:signal=KILL:when=" + std::to_string(n);
    run(traced({"-e", "trace=renameat", "-e", "inject=" + fault}, "/dev/null", full(two)));
    expect_sound("demo");
    const bool begun = n > 1;
    const auto found = jobs("demo");
    ASSERT_EQ(found.size(), begun ? 2U : 1U);
    EXPECT_EQ(found.back().complete, !begun) << "of the last catalog comes the whole job";
    const Output restored = restore("to" + std::to_string(n));
    EXPECT_EQ(restored.code, 0) << restored.err;
    EXPECT_EQ(
        restored.err,
        begun ? "warning: job 2 is not complete: job 1 of 'demo' is taken in its place\n" : "");
    const Output next = save(two, "incremental");
    EXPECT_EQ(next.code, 0) << next.err;
    EXPECT_EQ(next.err.rfind("removed what a killed job left: ", 0), 0U) << next.err;
    const unsigned int seq = begun ? 3 : 2;
    EXPECT_EQ(jobs("demo").back().seq, seq);
    // What is half is no base: the job is sound without it.
    EXPECT_TRUE(!begun || remove(2) == 0);
    expect_verified();
    EXPECT_EQ(remove(1), 1) << "it is the base";
    EXPECT_EQ(remove(seq), 0);
    EXPECT_EQ(pieces().size(), 4U);
  }
}

}  // namespace
