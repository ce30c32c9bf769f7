#include "mtf/writer/backup_source_lister.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>

#include "mtf/writer/backup_source_lister_factory.h"
#include "mtf/writer/backup_source_lister_mmap_impl.h"
#include "platform/native_path.h"
#include "tests/support/mapped_memory.h"
#include "tests/support/temp_dir.h"

namespace {

using Lister = MTF::Backup_Source_Lister;
using Lines = std::vector<std::string>;
using test_support::Temp_Dir;

constexpr unsigned int directory_mode = 0x41ED;
constexpr unsigned int file_mode = 0x81A4;

// All that is left of a lister or a store, up to its end.
template <class Source>
Lines rest(Source& source) {
  Lines lines;
  std::string dir;
  Lister::Entry entry;
  bool is_source = false;
  int result;
  while ((result = source.next_entry(dir, entry, is_source)) == 0) {
    lines.push_back(is_source ? "source " + dir : dir + " > " + entry.name);
    EXPECT_TRUE(!is_source || dir == entry.name);
  }
  EXPECT_EQ(result, 4);
  return lines;
}

// A directory at which the host throws is told and left out with all below.
TEST(Source_Lister, AnExceptionOfTheHostFailsADirectoryOnly) {
  Temp_Dir dir;
  for (const char* name : {"a", "a/deep", "b"}) {
    ASSERT_EQ(::mkdir((dir / name).c_str(), 0755), 0);
    test_support::write_file(dir / name + "/x", "");
  }
  MTF::source_entry top;
  ASSERT_TRUE(platform::system_path(dir.path(), top.path));
  platform::stat_link_native(dir.path(), top.stat);
  std::atomic<int> error{0};
  Lister lister(
      MTF::Backup_Source_Lister_Factory::create("mmap", dir.path()), 2,
      [&](const std::string& path, const Lister::Entry&) {
        if (path == top.path + "\\a\\x") throw std::bad_alloc();
        return true;
      },
      [&](const std::string&, int what) -> bool {
        error = what;
        throw std::runtime_error("no");
      },
      nullptr);
  EXPECT_FALSE(lister.open({MTF::source_entry()})) << "no path";
  ASSERT_TRUE(lister.open({top}));
  EXPECT_EQ(rest(lister), (Lines{"source " + top.path, top.path + " > b", top.path + "\\b > x"}));
  lister.wait();
  EXPECT_EQ(error, ENOMEM);
}

// Nobody waits for a reader who waits, or who has gone.
TEST(Source_Lister, WalkersThatWaitForTheReaderFindTheSame) {
  const Temp_Dir dir, cache;
  for (int i = 0; i < 60; ++i) {
    ASSERT_EQ(::mkdir((dir / std::to_string(i)).c_str(), 0755), 0);
    for (const char* name : {"/x", "/y"})
      test_support::write_file(dir / std::to_string(i) + name, "");
  }
  MTF::source_entry top;
  ASSERT_TRUE(platform::system_path(dir.path(), top.path));
  platform::stat_link_native(dir.path(), top.stat);
  const auto open = [&](std::size_t most_ahead) {
    auto store = std::make_unique<MTF::Backup_Source_Lister_MMap_Impl>(cache.path(), most_ahead);
    auto lister = std::make_unique<Lister>(std::move(store), 3, nullptr, nullptr, nullptr);
    EXPECT_TRUE(lister->open({top}));
    return lister;
  };
  const Lines all = rest(*open(1000));
  EXPECT_EQ(all.size(), 1U + 60 * 3);
  for (const std::size_t most_ahead : {0, 1, 20}) {
    EXPECT_EQ(rest(*open(most_ahead)), all);
    open(most_ahead);
  }
}

class Source_Store : public testing::Test {
 protected:
  void add_source(const std::string& path, unsigned int mode = directory_mode) {
    MTF::source_entry entry;
    entry.path = path;
    entry.stat.st_mode = mode;
    ASSERT_TRUE(store_.add_source(entry));
  }

  int add(const std::string& path, const std::string& name, unsigned int mode) {
    Lister::Entry entry;
    entry.name = name;
    entry.stat.st_mode = mode;
    return store_.add_entry(path, entry);
  }

  // The next directory to walk; empty if there is none.
  std::string next() {
    std::string path;
    const int result = store_.next_directory(path);
    EXPECT_EQ(result, path.empty() ? 4 : 0);
    return path;
  }

  Temp_Dir dir_;
  MTF::Backup_Source_Lister_MMap_Impl store_{dir_.path()};
};

// As a directory may be listed that changes meanwhile. The one given first may end last.
TEST_F(Source_Store, WhatIsFoundTwiceIsWalkedOnce) {
  add_source("/\\z", file_mode);
  for (int twice = 0; twice < 2; ++twice) add_source("X:");
  const std::string top = next();
  EXPECT_EQ(add(top, "a", directory_mode), 0);
  const std::string sub = next();
  EXPECT_EQ(add(top, "a", directory_mode), 0);
  EXPECT_EQ(add(sub, "1", file_mode), 1);
  EXPECT_TRUE(store_.walk_end(sub, true));
  EXPECT_TRUE(store_.walk_end(top, true));
  EXPECT_EQ(next(), "");
  EXPECT_EQ(rest(store_), (Lines{"source /\\z", "source X:", "X: > a", "X:\\a > 1"}));
}

TEST_F(Source_Store, ANameOfAFileAndADirectoryIsTheDirectorys) {
  add_source("X:");
  const std::string top = next();
  for (const char* name : {"c", "b", "a"}) EXPECT_EQ(add(top, name, file_mode), 1);
  for (const char* name : {"b", "bb"}) EXPECT_EQ(add(top, name, directory_mode), 0);
  EXPECT_TRUE(store_.walk_end(top, true));
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(store_.walk_end(next(), true));
  EXPECT_EQ(next(), "");
  EXPECT_EQ(rest(store_), (Lines{"source X:", "X: > a", "X: > c", "X: > b", "X: > bb"}));
}

TEST_F(Source_Store, TakesNothingForADirectoryThatIsGone) {
  add_source("X:");
  const std::string top = next();
  EXPECT_EQ(add(top, "a", file_mode), 1);
  store_.remove_directory(top);
  EXPECT_EQ(add(top, "b", file_mode), -1);
}

TEST_F(Source_Store, KeepsLittleOfATreeInMemory) {
  add_source("X:");
  const std::string top = next();
  constexpr unsigned long long step = MTF::MMap_Pool::unload_step;
  constexpr std::size_t length = 2000;
  constexpr auto files = static_cast<int>(4 * step / length);
  const unsigned long long before = test_support::mapped_memory();
  const auto held = [&] { return test_support::mapped_memory() - before; };
  unsigned long long most = 0;
  for (int i = 0; i < files; ++i) {
    ASSERT_EQ(add(top, std::to_string(10000 + i) + std::string(length, 'n'), file_mode), 1);
    if (i % 100 == 0) most = std::max(most, held());
  }
  EXPECT_TRUE(store_.walk_end(top, true));
  EXPECT_EQ(next(), "");
  EXPECT_GT(most, step / 2);
  EXPECT_LT(most, 2 * step);
  // Sorting looks at all; from there on less and less is needed.
  EXPECT_EQ(rest(store_).size(), 1U + files);
  EXPECT_LT(held(), 2 * step);
}

}  // namespace
