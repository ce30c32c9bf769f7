// What comes back where not all can come back as it was.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "tests/support/agent_run.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;

class Restoring : public Agent_Run {
 protected:
  static unsigned int mode_of(const std::string& path) {
    struct stat record = {};
    EXPECT_EQ(::stat(path.c_str(), &record), 0) << path;
    return record.st_mode & 07777U;
  }
};

// `/C` and the volume `C:` have one place below the directory restored to.
TEST_F(Restoring, NothingOverAnotherVolume) {
  const std::string top = "/C";
  if (!is_root() || fs::exists(top)) GTEST_SKIP() << "needs a directory of its own at the root";
  fs::create_directory(top);
  write_file(top + "/x", "of the root");
  write_file(source("/x"), "of the volume");
  write_file(source("/y"), "of the volume");
  const Output saved = save({"--volume", "C:=" + source(), "--source", top, "--source", "C:"});
  fs::remove_all(top);
  ASSERT_EQ(saved.code, 0) << saved.err;
  const Output all = restore("to");
  EXPECT_EQ(all.code, 1);
  const std::string why = ": its place has the volume '/': restore it by itself\n";
  EXPECT_EQ(all.err, "not restored: C:" + why + "not restored: C:\\\\x" + why +
                         "not restored: C:\\\\y" + why);
  EXPECT_EQ(all.out, "restored 1 file and 1 directory, 11 B; 3 failed\n");
  EXPECT_EQ(read_file(dir_ / "to/C/x"), "of the root");
  EXPECT_FALSE(fs::exists(dir_ / "to/C/y"));
  EXPECT_EQ(restore("alone", {"C:"}).code, 0);
  EXPECT_EQ(read_file(dir_ / "alone/C/x"), "of the volume");
}

TEST_F(Restoring, DirectoriesAboveAPathAsTheyWere) {
  fs::create_directories(source("/private/inner/there"));
  write_file(source("/private/inner/f"), "f");
  write_file(source("/private/other"), "other");
  fs::last_write_time(source("/private"), {});
  ::chmod(source("/private").c_str(), 0700);
  ::chmod(source("/private/inner").c_str(), 0750);
  const Snapshot before = snapshot(source());
  for (const char* kind : {"", "--plain"}) {
    SCOPED_TRACE(kind);
    const bool plain = *kind != '\0';
    ASSERT_EQ(save(plain ? Arguments{kind} : Arguments{}).code, 0);
    const std::string to = std::string("to") + kind;
    const std::string top = (dir_ / to) + source();
    const Output restored = restore(to, {source("/private/inner/f")});
    EXPECT_EQ(restored.code, 0) << restored.err;
    EXPECT_EQ(restored.out, "restored 1 file and 0 directories, 1 B\n");
    EXPECT_EQ(mode_of(top + "/private"), 0700U);
    EXPECT_EQ(mode_of(top + "/private/inner"), plain ? 0700U : 0750U);
    EXPECT_EQ(snapshot(top).at("/private"), before.at("/private"));
    EXPECT_FALSE(fs::exists(top + "/private/other"));
    // What the user has stays as it is.
    ::chmod((top + "/private/inner").c_str(), 0711);
    EXPECT_EQ(restore(to, {source("/private/inner/there")}).code, 0);
    EXPECT_EQ(mode_of(top + "/private/inner"), 0711U);
  }
}

TEST_F(Restoring, OwnersThatTheUserMayNotGiveAreCounted) {
  if (!is_root()) GTEST_SKIP() << "needs root to become somebody else";
  fs::create_directory(source("/d"));
  write_file(source("/d/f"), "f");
  write_file(source("/d/own"), "own");
  ASSERT_EQ(::chown(source("/d/own").c_str(), nobody, nobody), 0);
  ASSERT_EQ(::chmod(source("/d/f").c_str(), 04755), 0);
  ASSERT_EQ(save().code, 0);
  EXPECT_EQ(restore("root").err, "");

  const std::string program = dir_ / "mtf-agent";
  fs::copy_file(MTF_AGENT, program);
  ASSERT_EQ(::chmod(dir_.path().c_str(), 0755), 0);
  ASSERT_EQ(::chmod((dir_ / "storage").c_str(), 0755), 0);
  for (const std::string& piece : pieces()) ASSERT_EQ(::chmod(storage(piece).c_str(), 0644), 0);
  fs::create_directory(dir_ / "to");
  ASSERT_EQ(::chown((dir_ / "to").c_str(), nobody, nobody), 0);
  Limits limits;
  limits.as_nobody = true;
  Arguments arguments = on_storage("restore", {"--to", dir_ / "to", source("/d")});
  arguments[0] = program;
  Output restored = run(arguments, limits);
  EXPECT_EQ(restored.code, 0);
  const std::string of_root = source("/d/f");
  EXPECT_EQ(restored.err, "owner of " +
                              std::to_string(std::count(of_root.begin(), of_root.end(), '/')) +
                              " entries not restored: Operation not permitted\n");
  EXPECT_EQ(mode_of((dir_ / "to") + source("/d/f")), 0755U);
  arguments.back() = source("/d/f");
  restored = run(arguments, limits);
  EXPECT_EQ(restored.code, 0);
  EXPECT_EQ(restored.err, "owner of 1 entry not restored: Operation not permitted\n");
}

}  // namespace
