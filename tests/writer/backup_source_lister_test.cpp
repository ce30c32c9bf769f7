#include "mtf/writer/backup_source_lister.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <set>
#include <thread>

#include "mtf/writer/backup_source_lister_factory.h"
#include "mtf/writer/backup_source_lister_mmap_impl.h"
#include "platform/native_path.h"
#include "tests/support/mapped_memory.h"
#include "tests/support/random_tree.h"

namespace {

using Lister = MTF::Backup_Source_Lister;
using Store = MTF::Backup_Source_Lister_MMap_Impl;
using Lines = std::vector<std::string>;
using test_support::Random_Tree;
using test_support::Temp_Dir;
using test_support::write_file;

constexpr unsigned int directory_mode = 0x41ED;
constexpr unsigned int file_mode = 0x81A4;

MTF::source_entry source(const std::string& path, unsigned int mode) {
  MTF::source_entry entry;
  entry.path = path;
  entry.stat.st_mode = mode;
  return entry;
}

MTF::source_entry native_source(const std::string& native) {
  MTF::source_entry entry;
  EXPECT_TRUE(platform::system_path(native, entry.path));
  platform::stat_link_native(native, entry.stat);
  return entry;
}

Lister::Entry entry(const std::string& name, unsigned int mode) {
  Lister::Entry entry;
  entry.name = name;
  entry.stat.st_mode = mode;
  entry.stat.st_size = static_cast<long long>(name.size());
  return entry;
}

// All that is left of a stream, until `give` returns other than 0, which must be the end.
template <class Give>
Lines read_all(Give give) {
  Lines lines;
  std::string dir;
  Lister::Entry entry;
  bool is_source = false;
  int result;
  while ((result = give(dir, entry, is_source)) == 0) {
    lines.push_back(is_source ? "source " + dir : dir + " > " + entry.name);
    EXPECT_TRUE(!is_source || dir == entry.name);
  }
  EXPECT_EQ(result, 4);
  return lines;
}

Lines rest(Lister::Impl& store) {
  return read_all([&](auto&... out) { return store.next_entry(out...); });
}

Lines rest(Lister& lister) {
  return read_all([&](auto&... out) { return lister.next_entry(out...); });
}

// A walk of its own, with one directory after the other.
void list(const std::string& path, Lines& lines) {
  std::vector<Lister::Entry> entries;
  for (oxbase::Directory_Iterator_T<char> it(path); it.has_handle() && it != decltype(it)(); ++it) {
    entries.push_back(*it);
  }
  std::sort(entries.begin(), entries.end(),
            [](const auto& a, const auto& b) { return a.name < b.name; });
  for (const bool dirs : {false, true}) {
    for (const Lister::Entry& found : entries) {
      if (found.is_directory() != dirs) continue;
      lines.push_back(path + " > " + found.name);
      if (dirs) list(path + "\\" + found.name, lines);
    }
  }
}

void spin_at_random() {
  thread_local std::mt19937 random(
      static_cast<unsigned int>(std::hash<std::thread::id>()(std::this_thread::get_id())));
  const auto turns = random() % 8 == 0 ? random() % 20 : 0;
  for (unsigned int i = 0; i < turns; ++i) std::this_thread::yield();
}

bool keep(const std::string&, const Lister::Entry&) {
  spin_at_random();
  return true;
}

TEST(Source_Lister, TheOrderIsThatOfOneWalk) {
  const unsigned int seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  for (unsigned int round = 0; round < 6; ++round) {
    Temp_Dir dir, cache;
    const Random_Tree tree(dir.path(), seed + round);
    const MTF::source_entry top = native_source(dir.path());
    Lines wanted{"source " + top.path};
    list(top.path, wanted);
    for (int threads = 1; threads <= 8; ++threads) {
      Lister lister(MTF::Backup_Source_Lister_Factory::create("mmap", cache.path()), threads, keep,
                    nullptr, nullptr);
      ASSERT_TRUE(lister.open({top}));
      EXPECT_EQ(rest(lister), wanted) << threads << " threads";
    }
  }
}

TEST(Source_Lister, WhatCantBeOpened) {
  Temp_Dir dir;
  EXPECT_EQ(MTF::Backup_Source_Lister_Factory::create("list", dir.path()), nullptr);
  const std::list<MTF::source_entry> sources{native_source(dir.path())};
  Lister no_store(nullptr, 1, nullptr, nullptr, nullptr);
  EXPECT_FALSE(no_store.open(sources));
  std::string text;
  Lister::Entry found;
  bool is_source;
  EXPECT_EQ(no_store.next_entry(text, found, is_source), -1);
  Lister no_sources(MTF::Backup_Source_Lister_Factory::create("mmap", dir.path()), 1, nullptr,
                    nullptr, nullptr);
  EXPECT_FALSE(no_sources.open({}));
  write_file(dir / "file", "");
  Lister no_dir(MTF::Backup_Source_Lister_Factory::create("mmap", dir / "file"), 1, nullptr,
                nullptr, nullptr);
  EXPECT_FALSE(no_dir.open(sources));
}

TEST(Source_Lister, FailedSourcesAreToldAndLeftOut) {
  Temp_Dir dir;
  std::list<MTF::source_entry> sources;
  Lines wanted;
  std::set<std::string> gone;
  for (const char name : {'a', 'b', 'c', 'd', 'e', 'f'}) {
    const std::string path = dir / std::string(1, name);
    ASSERT_EQ(::mkdir(path.c_str(), 0755), 0);
    write_file(path + "/x", "");
    sources.push_back(native_source(path));
    if (name == 'b' || name == 'd') {
      wanted.push_back("source " + sources.back().path);
      wanted.push_back(sources.back().path + " > x");
    } else {
      platform::remove_tree(path);
      gone.insert(sources.back().path);
    }
  }
  for (int threads = 0; threads < 40; ++threads) {
    std::mutex lock;
    std::set<std::string> failed;
    Lister lister(
        MTF::Backup_Source_Lister_Factory::create("mmap", dir.path()), threads % 5, keep,
        [&](const std::string& path, int error) {
          const std::lock_guard<std::mutex> guard(lock);
          EXPECT_EQ(error, ENOENT);
          return failed.insert(path).second;
        },
        nullptr);
    ASSERT_TRUE(lister.open(sources));
    EXPECT_EQ(rest(lister), wanted);
    lister.wait();
    EXPECT_EQ(failed, gone);
  }
}

TEST(Source_Lister, AReaderMayStopAnywhere) {
  Temp_Dir dir, cache;
  const Random_Tree tree(dir.path(), 7);
  const std::list<MTF::source_entry> sources{native_source(dir.path())};
  for (int stop = 0; stop < 60; ++stop) {
    Lister lister(MTF::Backup_Source_Lister_Factory::create("mmap", cache.path()), 1 + stop % 4,
                  keep, nullptr, nullptr);
    ASSERT_TRUE(lister.open(sources));
    std::string text;
    Lister::Entry found;
    bool is_source;
    for (int i = 0; i < stop && lister.next_entry(text, found, is_source) == 0;) ++i;
  }
}

TEST(Source_Lister, AnExceptionOfTheHostFailsADirectoryOnly) {
  Temp_Dir dir;
  for (const char* name : {"a", "b"}) {
    ASSERT_EQ(::mkdir((dir / name).c_str(), 0755), 0);
    write_file(dir / name + "/x", "");
  }
  const MTF::source_entry top = native_source(dir.path());
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
  ASSERT_TRUE(lister.open({top}));
  EXPECT_EQ(rest(lister), (Lines{"source " + top.path, top.path + " > b", top.path + "\\b > x"}));
  lister.wait();
  EXPECT_EQ(error, ENOMEM);
}

class Source_Store : public testing::Test {
 protected:
  std::string next() {
    std::string path;
    EXPECT_EQ(store_.next_directory(path), 0);
    return path;
  }

  // The walk of a directory that holds `files` and `dirs`.
  void walk(const std::string& path, const Lines& files, const Lines& dirs, bool ok = true) {
    for (const std::string& name : dirs)
      EXPECT_EQ(store_.add_entry(path, entry(name, directory_mode)), 0);
    for (const std::string& name : files)
      EXPECT_EQ(store_.add_entry(path, entry(name, file_mode)), 1);
    EXPECT_TRUE(store_.walk_end(path, ok));
  }

  void drain() {
    std::string path;
    EXPECT_EQ(store_.next_directory(path), 4);
  }

  Temp_Dir dir_;
  Store store_{dir_.path()};
};

TEST_F(Source_Store, DirectoriesAreGivenLowestFirstAndMayEndInAnyOrder) {
  ASSERT_TRUE(store_.add_source(source("/\\s\\", directory_mode)));
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
  ASSERT_TRUE(store_.add_source(source("X:", directory_mode)));
  walk(next(), {}, {"a", "b"});
  walk(next(), {"lost"}, {"deep"}, false);
  EXPECT_EQ(next(), "X:\\a\\deep");
  walk("X:\\a\\deep", {"lost"}, {});
  walk(next(), {"1"}, {});
  drain();
  EXPECT_EQ(rest(store_), (Lines{"source X:", "X: > b", "X:\\b > 1"}));
}

TEST_F(Source_Store, EntriesComeBackWhole) {
  ASSERT_TRUE(store_.add_source(source("X:", directory_mode)));
  const std::string path = next();
  Lister::Entry link = entry("l", 0xA1FF), found;
  link.reparse_type = 16;
  link.stat.st_ino = 0x123456789ABCDEF0;
  link.stat.st_mtime = -1;
  EXPECT_EQ(store_.add_entry(path, link), 1);
  EXPECT_TRUE(store_.walk_end(path, true));
  std::string dir;
  bool is_source = false;
  EXPECT_EQ(store_.next_entry(dir, found, is_source), 0);
  EXPECT_TRUE(is_source && found.is_directory());
  EXPECT_EQ(store_.next_entry(dir, found, is_source), 0);
  EXPECT_FALSE(is_source);
  EXPECT_EQ(dir + found.name, "X:l");
  EXPECT_EQ(found.reparse_type, 16u);
  EXPECT_EQ(found.stat.st_ino, 0x123456789ABCDEF0u);
  EXPECT_EQ(found.stat.st_mtime, -1);
  EXPECT_EQ(found.stat.st_size, 1);
  EXPECT_EQ(store_.next_entry(dir, found, is_source), 4);
}

TEST_F(Source_Store, KeepsLittleOfATreeInMemory) {
  ASSERT_TRUE(store_.add_source(source("X:", directory_mode)));
  const std::string top = next();
  Lister::Entry file = entry(std::string(2000, 'n'), file_mode);
  constexpr unsigned long long step = MTF::MMap_Pool::unload_step;
  const auto files = static_cast<int>(4 * step / file.name.size());
  const unsigned long long before = test_support::mapped_memory();
  unsigned long long most = 0;
  const auto look = [&](int i) {
    if (i % 100 == 0) most = std::max(most, test_support::mapped_memory() - before);
  };
  for (int i = 0; i < files; look(i++)) {
    file.name.replace(0, 5, std::to_string(10000 + i));
    ASSERT_EQ(store_.add_entry(top, file), 1);
  }
  EXPECT_TRUE(store_.walk_end(top, true));
  drain();
  EXPECT_GT(most, step / 2);
  EXPECT_LT(most, 2 * step);
  // Sorting looks at all; from there on less and less is needed.
  Lister::Entry found;
  std::string text;
  bool is_source = false;
  for (int i = 0; store_.next_entry(text, found, is_source) == 0; ++i) {
    if (i == files / 2) {
      EXPECT_LT(test_support::mapped_memory() - before, 2 * step);
    }
  }
  EXPECT_LT(test_support::mapped_memory() - before, 2 * step);
}

TEST_F(Source_Store, FilesAloneAndADirectoryGivenTwice) {
  ASSERT_TRUE(store_.add_source(source("/\\z", file_mode)));
  ASSERT_TRUE(store_.add_source(source("/\\d\\", directory_mode)));
  ASSERT_TRUE(store_.add_source(source("/\\d\\", directory_mode)));
  ASSERT_TRUE(store_.add_source(source("/\\a", file_mode)));
  walk(next(), {"1"}, {});
  drain();
  EXPECT_EQ(rest(store_), (Lines{"source /\\z", "source /\\d\\", "/\\d\\ > 1", "source /\\a"}));
}

// As a directory may be listed that changes meanwhile.
TEST_F(Source_Store, ASubDirectoryFoundTwiceIsWalkedOnce) {
  ASSERT_TRUE(store_.add_source(source("X:", directory_mode)));
  const std::string top = next();
  EXPECT_EQ(store_.add_entry(top, entry("a", directory_mode)), 0);
  const std::string sub = next();
  EXPECT_EQ(store_.add_entry(top, entry("a", directory_mode)), 0);
  walk(sub, {"1"}, {});
  EXPECT_TRUE(store_.walk_end(top, true));
  drain();
  EXPECT_EQ(rest(store_), (Lines{"source X:", "X: > a", "X:\\a > 1"}));
}

TEST_F(Source_Store, OneWalkEndMovesOneStep) {
  EXPECT_EQ(store_.enqueue_one(false), Store::none_pending);
  for (const char* path : {"/\\a", "/\\b"}) ASSERT_TRUE(store_.add_source(source(path, file_mode)));
  ASSERT_TRUE(store_.add_source(source("/\\c\\", directory_mode)));
  const std::string path = next();
  EXPECT_EQ(store_.enqueue_one(false), Store::moved);
  EXPECT_EQ(store_.enqueue_one(false), Store::moved);
  EXPECT_EQ(store_.enqueue_one(false), Store::head_waits);
  EXPECT_TRUE(store_.walk_end(path, false));
  EXPECT_EQ(store_.enqueue_one(false), Store::none_pending);
  EXPECT_EQ(rest(store_), (Lines{"source /\\a", "source /\\b"}));
}

TEST_F(Source_Store, ANullNodeComesBeforeNothing) {
  EXPECT_FALSE(MTF::node_less(nullptr, nullptr));
  MTF::Cache_Node* const node = store_.make_node(MTF::Cache_Node::node_size(0));
  EXPECT_FALSE(MTF::node_less(nullptr, node) || MTF::node_less(node, nullptr));
}

}  // namespace
