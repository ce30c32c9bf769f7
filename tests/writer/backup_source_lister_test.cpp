#include "mtf/writer/backup_source_lister.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <mutex>
#include <set>
#include <thread>

#include "mtf/writer/backup_source_lister_factory.h"
#include "mtf/writer/backup_source_lister_mmap_impl.h"
#include "platform/native_path.h"
#include "tests/support/mapped_memory.h"
#include "tests/support/temp_dir.h"

namespace {

using Lister = MTF::Backup_Source_Lister;
using Factory = MTF::Backup_Source_Lister_Factory;
using Lines = std::vector<std::string>;
using test_support::Temp_Dir;
using test_support::write_file;

constexpr unsigned int directory_mode = 0x41ED;
constexpr unsigned int file_mode = 0x81A4;

MTF::source_entry native_source(const std::string& native) {
  MTF::source_entry entry;
  EXPECT_TRUE(platform::system_path(native, entry.path));
  platform::stat_link_native(native, entry.stat);
  return entry;
}

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

TEST(Source_Lister, WhatCantBeOpened) {
  Temp_Dir dir;
  EXPECT_EQ(Factory::create("list", dir.path()), nullptr);
  const std::list<MTF::source_entry> sources{native_source(dir.path())};
  Lister no_store(nullptr, 1, nullptr, nullptr, nullptr);
  EXPECT_FALSE(no_store.open(sources));
  Lister no_sources(Factory::create("mmap", dir.path()), 1, nullptr, nullptr, nullptr);
  EXPECT_FALSE(no_sources.open({}));
}

// Directories that vanish, and those at which the host throws, are told and left out.
TEST(Source_Lister, FailedDirectoriesAreToldAndLeftOut) {
  Temp_Dir dir;
  std::list<MTF::source_entry> sources;
  Lines wanted;
  std::set<std::string> lost;
  for (const char name : {'a', 'b', 'c', 'd', 'e', 'f'}) {
    const std::string path = dir / std::string(1, name);
    ASSERT_EQ(::mkdir(path.c_str(), 0755), 0);
    write_file(path + (name == 'c' ? "/throws" : "/x"), "");
    sources.push_back(native_source(path));
    if (name == 'b' || name == 'd') {
      wanted.push_back("source " + sources.back().path);
      wanted.push_back(sources.back().path + " > x");
    } else {
      lost.insert(sources.back().path);
      if (name != 'c') platform::remove_tree(path);
    }
  }
  for (int threads = 0; threads < 40; ++threads) {
    std::mutex lock;
    std::set<std::string> failed;
    Lister lister(
        Factory::create("mmap", dir.path()), threads % 5,
        [](const std::string& path, const Lister::Entry&) {
          if (path.back() == 's') throw std::bad_alloc();
          std::this_thread::yield();
          return true;
        },
        [&](const std::string& path, int error) -> bool {
          const std::lock_guard<std::mutex> guard(lock);
          EXPECT_EQ(error, path.back() == 'c' ? ENOMEM : ENOENT);
          failed.insert(path);
          throw std::runtime_error("no");
        },
        nullptr);
    ASSERT_TRUE(lister.open(sources));
    EXPECT_EQ(rest(lister), wanted);
    lister.wait();
    EXPECT_EQ(failed, lost);
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

  std::string next() {
    std::string path;
    EXPECT_EQ(store_.next_directory(path), 0);
    return path;
  }

  // The walk of a directory that holds `files` and `dirs`.
  void walk(const std::string& path, const Lines& files, const Lines& dirs, bool ok = true) {
    for (const std::string& name : dirs) EXPECT_EQ(add(path, name, directory_mode), 0);
    for (const std::string& name : files) EXPECT_EQ(add(path, name, file_mode), 1);
    EXPECT_TRUE(store_.walk_end(path, ok));
  }

  void drain() {
    std::string path;
    EXPECT_EQ(store_.next_directory(path), 4);
  }

  Temp_Dir dir_;
  MTF::Backup_Source_Lister_MMap_Impl store_{dir_.path()};
};

TEST_F(Source_Store, DirectoriesAreGivenLowestFirstAndMayEndInAnyOrder) {
  add_source("/\\s\\");
  walk(next(), {"z", "a.", "a"}, {"x.y", "x"});
  const std::string first = next(), second = next();
  EXPECT_EQ(first, "/\\s\\x");
  EXPECT_EQ(second, "/\\s\\x.y");
  walk(second, {"2"}, {});
  walk(first, {"1"}, {"deep"});
  walk(next(), {"0"}, {});
  drain();
  EXPECT_EQ(rest(store_), (Lines{"source /\\s\\", "/\\s\\ > a", "/\\s\\ > a.", "/\\s\\ > z",
                                 "/\\s > x", "/\\s\\x > 1", "/\\s\\x > deep", "/\\s\\x\\deep > 0",
                                 "/\\s > x.y", "/\\s\\x.y > 2"}));
}

TEST_F(Source_Store, AFailedDirectoryIsLeftOutThoughWhatItHoldsIsWalked) {
  add_source("X:");
  walk(next(), {}, {"a", "b"});
  walk(next(), {"lost"}, {"deep"}, false);
  EXPECT_EQ(next(), "X:\\a\\deep");
  walk("X:\\a\\deep", {"lost"}, {});
  walk(next(), {"1"}, {});
  drain();
  EXPECT_EQ(rest(store_), (Lines{"source X:", "X: > b", "X:\\b > 1"}));
}

// As a directory may be listed that changes meanwhile.
TEST_F(Source_Store, WhatIsFoundTwiceIsWalkedOnce) {
  add_source("/\\z", file_mode);
  add_source("X:");
  add_source("X:");
  const std::string top = next();
  EXPECT_EQ(add(top, "a", directory_mode), 0);
  const std::string sub = next();
  walk(top, {}, {"a"});
  walk(sub, {"1"}, {});
  drain();
  EXPECT_EQ(rest(store_), (Lines{"source /\\z", "source X:", "X: > a", "X:\\a > 1"}));
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
  drain();
  EXPECT_GT(most, step / 2);
  EXPECT_LT(most, 2 * step);
  // Sorting looks at all; from there on less and less is needed.
  EXPECT_EQ(rest(store_).size(), 1U + files);
  EXPECT_LT(held(), 2 * step);
}

}  // namespace
