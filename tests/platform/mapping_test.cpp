#include "platform/mapping.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tests/support/temp_dir.h"

namespace {

using test_support::Temp_Dir;

TEST(Mapping, GrowsInPlace) {
  Temp_Dir dir;
  platform::Mapping mapping;
  ASSERT_TRUE(mapping.create_in(dir.path()));
  EXPECT_EQ(::rmdir(dir.path().c_str()), 0) << "the file has a name";
  ASSERT_TRUE(mapping.grow(1));
  char* const base = mapping.data();
  std::memcpy(base, "first", 5);
  for (unsigned long long size : {3ULL << 20, 40ULL << 20, 41ULL << 20}) {
    ASSERT_TRUE(mapping.grow(size));
    EXPECT_EQ(mapping.data(), base);
    EXPECT_GE(mapping.size(), size);
    EXPECT_EQ(base[mapping.size() - 1], 0);
    base[mapping.size() - 1] = 'x';
  }
  EXPECT_EQ(std::memcmp(base, "first", 5), 0);
  EXPECT_FALSE(mapping.grow(~0ULL));
  EXPECT_EQ(errno, ENOMEM);
}

TEST(Mapping, FilesAtAPath) {
  Temp_Dir dir;
  test_support::write_file(dir / "f", "old");
  platform::Mapping mapping;
  ASSERT_TRUE(mapping.create(dir / "f", true));
  ASSERT_TRUE(mapping.grow(10));
  EXPECT_EQ(mapping.data()[0], 0);
  EXPECT_EQ(::access((dir / "f").c_str(), F_OK), 0);
  ASSERT_TRUE(mapping.create(dir / "f", false));
  EXPECT_EQ(::access((dir / "f").c_str(), F_OK), -1);
  EXPECT_FALSE(mapping.create(dir / "no/f", false));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(mapping.grow(1));
}

TEST(Mapping, BlocksAreThereBeforeTheyAreTouched) {
  Temp_Dir dir;
  platform::Mapping mapping;
  ASSERT_TRUE(mapping.create(dir / "f", true));
  ASSERT_TRUE(mapping.grow(3 << 20));
  struct stat st;
  ASSERT_EQ(::stat((dir / "f").c_str(), &st), 0);
  EXPECT_GE(static_cast<unsigned long long>(st.st_blocks) * 512, mapping.size());
}

// Runs where files may have 17 MiB at most, which fails like a full disk. Returns 0 if all is well,
// else the step that wasn't.
int grow_at_the_limit(const std::string& dir) {
  constexpr unsigned long long mib = 1 << 20;
  ::signal(SIGXFSZ, SIG_IGN);
  const rlimit limit = {17 * mib, 17 * mib};
  if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return 1;
  platform::Mapping mapping;
  if (!mapping.create_in(dir) || !mapping.grow(16 * mib)) return 2;
  char* const base = mapping.data();
  std::memset(base, 'a', 16 * mib);
  if (mapping.grow(18 * mib) || errno != EFBIG) return 3;
  if (mapping.size() != 16 * mib || mapping.data() != base || base[16 * mib - 1] != 'a') return 4;
  // What still fits succeeds after the failure, though the segment ahead would not.
  if (!mapping.grow(17 * mib)) return 5;
  std::memset(base, 'b', 17 * mib);
  return 0;
}

TEST(Mapping, AFullDiskIsAResultAndNoSignal) {
  Temp_Dir dir;
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) ::_exit(grow_at_the_limit(dir.path()));
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
