// Jobs over a tree that another process changes without pause.
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <random>

#include "tests/support/agent_run.h"
#include "tests/support/tree_changer.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;

constexpr const char* secret = "SECRET of a directory that nobody named";

// A process that changes the tree until the object goes.
class Changing_Process {
 public:
  Changing_Process(const std::string& tree, const std::string& outside, unsigned int seed)
      : child_(::fork()) {
    EXPECT_NE(child_, -1);
    if (child_ != 0) return;
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    Tree_Changer changer(tree, outside, seed);
    for (;;) changer.change();
  }
  ~Changing_Process() {
    ::kill(child_, SIGKILL);
    ::waitpid(child_, nullptr, 0);
  }

 private:
  pid_t child_;
};

class Changing_Tree : public Agent_Run {
 protected:
  Changing_Tree() {
    for (const char* still : {"/still", "/still/sub", "/zz still"}) {
      fs::create_directory(source(still));
      make_many(source(still), 40);
    }
  }

  // A changing process that was killed may have left a link where it put a directory for a moment,
  // and the next one would move what is outside through it.
  void start_anew() {
    for (const std::string& old : {source("/moving"), source("/moving.link"), dir_ / "outside"}) {
      fs::remove_all(old);
    }
    fs::create_directory(source("/moving"));
    // As deep as the tree, with the same names, so that each way in has something at its end.
    Tree_Changer::fill(dir_ / "outside", secret, 4);
  }

  // One job and all that is to hold for it.
  void expect_sound(const char* command, const Arguments& how, bool plain, bool old_kernel) {
    Process job(full(how, command), {RLIM_INFINITY, false, old_kernel});
    ASSERT_TRUE(wait_until([&job] { return job.has_ended(); })) << "the job hangs";
    const Output saved = job.finish();
    ASSERT_TRUE(saved.code == 0 || saved.code == 3) << saved.code << saved.err.substr(0, 4000);
    expect_verified();
    for (const std::string& piece : pieces()) {
      EXPECT_EQ(read_file(storage(piece)).find(secret), std::string::npos) << piece;
    }
    const Output restored = restore("to");
    EXPECT_EQ(restored.code, 0) << restored.err.substr(0, 4000);
    for (const char* still : {"/still", "/zz still"}) {
      EXPECT_EQ(difference(snapshot(source(still), plain), snapshot(back(still), plain)), "");
    }
    fs::remove_all(dir_ / "to");
  }
};

TEST_F(Changing_Tree, EveryJobIsSound) {
  const unsigned int seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int round = 0; round < MTF_TEST_CHANGING_ROUNDS && !HasFailure(); ++round) {
    start_anew();
    const Changing_Process changing(source("/moving"), dir_ / "outside", seed + round);
    Arguments how{"--threads", round % 2 == 0 ? "1" : "3", "--channels",
                  round / 2 % 2 == 0 ? "1" : "2"};
    const bool plain = random() % 2 == 0;
    if (plain) how.push_back("--plain");
    SCOPED_TRACE("round " + std::to_string(round) + (plain ? " plain" : ""));
    for (const char* command : {"full", "incremental", "incremental"}) {
      SCOPED_TRACE(command);
      expect_sound(command, how, plain, round % 3 == 2);
      if (HasFailure()) return;
    }
    fs::remove_all(dir_ / "storage");
  }
}

}  // namespace
