#include "agent/storage.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

#include "agent/directory_piece_store.h"
#include "tests/support/temp_dir.h"

namespace {

using agent::Storage;
using test_support::Temp_Dir;
using test_support::write_file;

std::vector<std::string> names_in(const std::string& path) {
  platform::Storage_Directory directory;
  std::vector<std::string> names;
  EXPECT_TRUE(directory.open(path, false) && directory.names(names));
  std::sort(names.begin(), names.end());
  return names;
}

using Names = std::vector<std::string>;

TEST(Storage, Stems) {
  for (const char* stem : {"demo", "A-b_9", "-", "0"}) EXPECT_EQ(agent::stem_fault(stem), "");
  EXPECT_EQ(agent::stem_fault(std::string(200, 'a')), "");
  const std::string nul("a\0b", 3);
  const std::string long_stem(201, 'a');
  for (const std::string& stem :
       {std::string(), std::string("."), std::string(".."), std::string("a.b"), std::string("a/b"),
        std::string("../a"), std::string("a b"), std::string("a\n"), std::string("\xC3\xA4"), nul,
        long_stem}) {
    const std::string fault = agent::stem_fault(stem);
    EXPECT_NE(fault, "") << stem;
    EXPECT_EQ(fault.find('\n'), std::string::npos);
  }
}

TEST(Storage, OneJobOfAStemAtATime) {
  Temp_Dir dir;
  Storage first, second;
  std::string error;
  ASSERT_TRUE(first.open_for_job(dir.path(), false, "demo", error)) << error;
  EXPECT_FALSE(second.open_for_job(dir.path(), false, "demo", error));
  EXPECT_EQ(error, "a job of 'demo' is running");
  Storage other;
  EXPECT_TRUE(other.open_for_job(dir.path(), false, "demo2", error)) << error;
}

TEST(Storage, TheLockOfAKilledJobIsFree) {
  Temp_Dir dir;
  int ready[2];
  ASSERT_EQ(::pipe(ready), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    Storage storage;
    std::string error;
    const char done = storage.open_for_job(dir.path(), false, "demo", error) ? 'y' : 'n';
    if (::write(ready[1], &done, 1) == 1) ::pause();
    ::_exit(1);
  }
  char done = 0;
  ASSERT_EQ(::read(ready[0], &done, 1), 1);
  EXPECT_EQ(done, 'y');
  Storage storage;
  std::string error;
  EXPECT_FALSE(storage.open_for_job(dir.path(), false, "demo", error));
  ASSERT_EQ(::kill(child, SIGKILL), 0);
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
  EXPECT_TRUE(storage.open_for_job(dir.path(), false, "demo", error)) << error;
  ::close(ready[0]);
  ::close(ready[1]);
}

TEST(Storage, AJobClearsWhatAKilledOneLeft) {
  Temp_Dir dir;
  for (const char* name : {"demo.1.0.mtf", "demo.2.0.mtf.part", "demo.2.0.cat.part", "demo.part",
                           "demo2.2.0.mtf.part", "notes.part", "demo.02.0.mtf.part"}) {
    write_file(dir / name, "x");
  }
  Storage storage;
  std::string error;
  ASSERT_TRUE(storage.open_for_job(dir.path(), false, "demo", error)) << error;
  EXPECT_EQ(names_in(dir.path()), (Names{".demo.lock", "demo.02.0.mtf.part", "demo.1.0.mtf",
                                         "demo.part", "demo2.2.0.mtf.part", "notes.part"}));
}

TEST(Storage, NewestJobAndRemoval) {
  Temp_Dir dir;
  Storage storage;
  std::string error;
  unsigned int seq = 7;
  ASSERT_TRUE(storage.open_for_job(dir / "new/deep", true, "demo", error)) << error;
  struct stat record;
  ASSERT_EQ(::stat((dir / "new/deep").c_str(), &record), 0);
  EXPECT_EQ(record.st_mode & 0777, 0700U);
  ASSERT_TRUE(storage.newest_seq("demo", seq, error));
  EXPECT_EQ(seq, 0U);
  const std::string path = dir / "new/deep/";
  for (const char* name : {"demo.9.1.mtf", "demo.9.1.cat", "demo.9.2.mtf", "demo.10.0.mtf",
                           "demo2.99.0.mtf", "demo.011.0.mtf", "demo.12.0.mtf.bak"}) {
    write_file(path + name, "12345");
  }
  ASSERT_TRUE(storage.newest_seq("demo", seq, error));
  EXPECT_EQ(seq, 10U);
  EXPECT_EQ(storage.job_size("demo", 9), 15U);
  EXPECT_TRUE(storage.remove_job("demo", 9, error)) << error;
  EXPECT_FALSE(storage.remove_job("demo", 9, error));
  EXPECT_EQ(error, "there is no job 9 of 'demo'");
  EXPECT_EQ(names_in(path), (Names{".demo.lock", "demo.011.0.mtf", "demo.10.0.mtf",
                                   "demo.12.0.mtf.bak", "demo2.99.0.mtf"}));
}

TEST(Storage, NoStorage) {
  Temp_Dir dir;
  write_file(dir / "file", "x");
  Storage storage;
  std::string error;
  EXPECT_FALSE(storage.open(dir / "none", error));
  EXPECT_EQ(error, "storage '" + (dir / "none") + "': No such file or directory");
  EXPECT_FALSE(storage.open_for_job(dir / "file", true, "demo", error));
  EXPECT_EQ(error, "storage '" + (dir / "file") + "': Not a directory");
  EXPECT_EQ(::access((dir / "none").c_str(), F_OK), -1);
}

// Root may do everything: it takes another user's rights for a while.
class Without_Rights {
 public:
  Without_Rights() : uid_(::geteuid()) {
    if (uid_ == 0) check(::seteuid(65534));
  }
  ~Without_Rights() {
    if (uid_ == 0) check(::seteuid(0));
  }

 private:
  static void check(int result) { EXPECT_EQ(result, 0); }

  uid_t uid_;
};

TEST(Storage, NotWritable) {
  Temp_Dir dir;
  ASSERT_EQ(::chmod(dir.path().c_str(), 0555), 0);
  const Without_Rights rights;
  Storage storage;
  std::string error;
  EXPECT_FALSE(storage.open_for_job(dir.path(), true, "demo", error));
  EXPECT_EQ(error, "storage '" + dir.path() + "': Permission denied");
}

TEST(Directory_Piece_Store, GivesWholePieces) {
  Temp_Dir dir;
  write_file(dir / "demo.1.0.mtf", "0123456789");
  write_file(dir / "demo.1.0.cat.part", "x");
  write_file(dir / ".demo.lock", "");
  ASSERT_EQ(::mkfifo((dir / "demo.2.0.mtf").c_str(), 0600), 0);
  ASSERT_EQ(::symlink("demo.1.0.mtf", (dir / "demo.3.0.mtf").c_str()), 0);
  platform::Storage_Directory directory;
  ASSERT_TRUE(directory.open(dir.path(), false));
  agent::Directory_Piece_Store store(directory, dir.path());
  Names names;
  std::string error;
  ASSERT_TRUE(store.pieces(names, error));
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (Names{"demo.1.0.mtf", "demo.2.0.mtf", "demo.3.0.mtf"}));
  for (const char* name : {"demo.2.0.mtf", "demo.3.0.mtf", "none", "../x", ""}) {
    EXPECT_EQ(store.open(name, error), nullptr) << name;
    EXPECT_EQ(error.compare(0, std::string(name).size() + 2, std::string(name) + ": "), 0);
  }
  const auto reader = store.open("demo.1.0.mtf", error);
  ASSERT_NE(reader, nullptr);
  EXPECT_EQ(reader->size(), 10U);
  write_file(dir / "demo.1.0.mtf", "0123456789 and more");
  char data[32];
  EXPECT_EQ(reader->read_at(2, data, 3), 3);
  EXPECT_EQ(std::string(data, 3), "234");
  EXPECT_EQ(reader->read_at(8, data, sizeof data), 2);
  EXPECT_EQ(reader->read_at(10, data, sizeof data), 0);
  EXPECT_EQ(reader->read_at(~0ULL, data, sizeof data), 0);
}

}  // namespace
