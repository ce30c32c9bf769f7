// Who may read what a job makes.
#include <sys/stat.h>

#include <filesystem>

#include "mtf/writer/backup_source_lister_mmap_impl.h"
#include "services/settings.h"
#include "tests/support/agent_run.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;

class Privacy : public Agent_Run {};

unsigned int mode_of(const fs::path& path) {
  struct stat st;
  EXPECT_EQ(::lstat(path.c_str(), &st), 0) << path;
  return st.st_mode & 0777;
}

// Every file and directory below `top` is its owner's alone; returns how many there are.
int expect_private(const std::string& top) {
  int count = 0;
  for (const auto& entry : fs::recursive_directory_iterator(top)) {
    EXPECT_EQ(mode_of(entry.path()), entry.is_directory() ? 0700U : 0600U) << entry.path();
    ++count;
  }
  return count;
}

TEST_F(Privacy, WhateverTheMaskIs) {
  make_endless(source("/endless"));
  for (const char* mask : {"0", "0777"}) {
    Arguments arguments = full({"--plain", "--threads", "2"});
    arguments.insert(arguments.begin(),
                     {"/bin/sh", "-c", std::string("umask ") + mask + "; exec \"$0\" \"$@\""});
    Process job(arguments);
    ASSERT_TRUE(wait_until([&] { return has_unfinished_piece() || job.has_ended(); }));
    EXPECT_EQ(mode_of(dir_ / "storage"), 0700U);
    EXPECT_EQ(mode_of(dir_ / "tmp"), 0700U);
    EXPECT_EQ(expect_private(dir_ / "storage"), 2) << "the lock and a piece";
    EXPECT_GE(expect_private(dir_ / "tmp"), 4) << "two directories and the files of the catalogs";
    job.signal(SIGTERM);
    EXPECT_EQ(job.finish().code, 1);
    EXPECT_TRUE(fs::is_empty(dir_ / "tmp"));
    fs::remove_all(dir_ / "storage");
    fs::remove_all(dir_ / "tmp");
  }
}

TEST_F(Privacy, TheListersDirectoryIsItsOwnersAlone) {
  const mode_t before = ::umask(0);
  const MTF::Backup_Source_Lister_MMap_Impl lister(dir_ / "spill/deep");
  ::umask(before);
  EXPECT_EQ(mode_of(dir_ / "spill"), 0700U);
  EXPECT_EQ(mode_of(dir_ / "spill/deep"), 0700U);
}

}  // namespace
