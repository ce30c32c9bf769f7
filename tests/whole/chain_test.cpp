// Jobs that need earlier ones.
#include <filesystem>

#include "tests/support/agent_run.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;

class Broken_Chain : public Agent_Run {
 protected:
  Output save_next(const Arguments& more = {}) const {
    Arguments all = full(more);
    all[1] = "incremental";
    return run(all);
  }

  void make_chain(const Arguments& how) const {
    for (int i = 0; i < 8; ++i) write_file(source("/f" + std::to_string(i)), "f");
    ASSERT_EQ(save(how).code, 0);
    ASSERT_EQ(save_next(how).code, 0);
  }

  void expect_refused(const Output& output, const std::string& line) const {
    EXPECT_EQ(output.code, 1);
    EXPECT_EQ(output.err, "error: " + line + '\n');
    EXPECT_EQ(output.out, "");
  }
};

using Broken_Chain_On = On_Each_Storage<Broken_Chain>;

INSTANTIATE_TEST_SUITE_P(, Broken_Chain_On, testing::Values("directory", "remote"));

const std::string needs_job_1 =
    "job 2 of 'demo' needs job 1, which isn't complete: run a full job, or name another --base";

// Files that didn't change would be nowhere on the storage.
TEST_P(Broken_Chain_On, AJobThatTheBaseNeedsIsGone) {
  make_chain({});
  ASSERT_EQ(run(on_storage("remove", {"--seq", "1", "--force"})).code, 0);
  const Arguments left = pieces();
  expect_refused(save_next(), needs_job_1);
  EXPECT_EQ(pieces(), left);
  EXPECT_EQ(save().code, 0);
  EXPECT_EQ(save_next().code, 0) << "the full job needs no other";
}

TEST_P(Broken_Chain_On, AJobThatTheBaseNeedsLacksAPiece) {
  make_chain({"--channels", "2"});
  for (const char* piece : {"demo.1.1.mtf", "demo.1.2.cat"}) {
    SCOPED_TRACE(piece);
    fs::rename(storage(piece), dir_ / "aside");
    expect_refused(save_next({"--channels", "2"}), needs_job_1);
    fs::rename(dir_ / "aside", storage(piece));
  }
  // What the base needs nothing of may be gone.
  for (int i = 0; i < 8; ++i) fs::last_write_time(source("/f" + std::to_string(i)), {});
  ASSERT_EQ(save_next({"--channels", "2"}).code, 0);
  ASSERT_EQ(run(on_storage("remove", {"--seq", "2", "--force"})).code, 0);
  EXPECT_EQ(save_next({"--channels", "2"}).code, 0);
}

// Not its working copy, of which nothing stays. Wherever the damage is, the storage is as it was.
TEST_F(Broken_Chain, TheDamagedPieceIsNamed) {
  make_chain({});
  const std::string sound = read_file(storage("demo.2.0.cat"));
  const std::size_t file = sound.find("FILE");
  const Arguments before = pieces();
  const std::pair<std::size_t, std::string> cases[] = {
      {10, ":0: the summary is damaged"},
      {100, ""},
      {file + 20, ':' + std::to_string(file - 2) + ": a record is damaged"},
      {sound.size() - 20, ""}};
  for (const auto& [at, told] : cases) {
    std::string broken = sound;
    broken[at] = static_cast<char>(broken[at] ^ 1);
    write_file(storage("demo.2.0.cat"), broken);
    const std::string line = "error: Earlier catalog can't be used, demo.2.0.cat:";
    const Output output = save_next();
    EXPECT_EQ(output.code, 1);
    EXPECT_EQ(output.err.find(told.empty() ? line : line.substr(0, line.size() - 1) + told), 0U)
        << output.err;
    EXPECT_EQ(pieces(), before);
  }
}

}  // namespace
