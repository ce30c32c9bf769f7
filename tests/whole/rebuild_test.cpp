// Catalogs that are lost and made again.
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <filesystem>

#include "tests/support/agent_run.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;

class Rebuilding : public Agent_Run {
 protected:
  // Three jobs. In between files change and come, and a file makes room for a directory.
  void make_chain(const Arguments& how) {
    fs::create_directories(source("/d/empty"));
    write_file(source("/room"), "a file");
    for (int i = 0; i < 12; ++i) write_file(source("/d/f" + std::to_string(i)), std::to_string(i));
    ASSERT_EQ(save(how).code, 0);
    fs::remove(source("/room"));
    fs::create_directory(source("/room"));
    write_file(source("/room/new"), "new");
    touch_and_save("/d/f1", how);
    touch_and_save("/d/f2", how);
  }

  void touch_and_save(const std::string& file, const Arguments& how) {
    write_file(source(file), "changed");
    fs::last_write_time(source(file), {});
    before_ = snapshot(source(), how[0] == "--plain");
    ASSERT_EQ(save(how, "incremental").code, 0);
  }

  Output rebuild(const Arguments& more = {}) const {
    Arguments all{"--tmp", dir_ / "tmp"};
    all.insert(all.end(), more.begin(), more.end());
    return run(on_storage("rebuild", all));
  }

  // Of a chain that lacks a media.
  void expect_the_rest_restored(bool plain) {
    const Output output = restore("to", {"--seq", "3"});
    const Snapshot found = snapshot(back(), plain);
    bool whole = true;
    for (const auto& [path, state] : before_) {
      const auto it = found.find(path);
      const bool here = it != found.end() && it->second == state;
      const std::string line = "not restored: " + source(path) + ": ";
      EXPECT_TRUE(here || output.err.find(line) != std::string::npos) << path << output.err;
      whole = whole && here;
    }
    EXPECT_EQ(output.code, whole ? 0 : 1) << output.err;
    platform::remove_tree(dir_ / "to");
  }

  Snapshot before_;
};

using Rebuilding_On = On_Each_Storage<Rebuilding>;

TEST_F(Rebuilding, EachPieceOfAChainInTurn) {
  for (const char* kind : {"--plain", "--compression=lz4"}) {
    SCOPED_TRACE(kind);
    const bool plain = *(kind + 2) == 'p';
    make_chain({kind, "--channels", "2"});
    for (const std::string& piece : pieces()) {
      SCOPED_TRACE(piece);
      const std::string lost = read_file(storage(piece));
      fs::remove(storage(piece));
      if (piece.find(".cat") == std::string::npos) {
        expect_the_rest_restored(plain);
        write_file(storage(piece), lost);
        continue;
      }
      const Output made = rebuild({"--seq", "3"});
      const bool unneeded = piece.compare(0, 7, "demo.3.") != 0;
      // A whole job needs no look at what it started from.
      EXPECT_EQ(made.code, 0) << made.err;
      const Output all = rebuild();
      EXPECT_EQ(all.out == "no catalog is missing\n", !unneeded) << all.out << all.err;
      EXPECT_TRUE(!plain || read_file(storage(piece)) == lost);
      for (const char* seq : {"1", "2", "3"}) expect_verified({"--seq", seq});
      EXPECT_EQ(restore("to").code, 0);
      EXPECT_EQ(difference(before_, snapshot(back(), plain)), "");
      platform::remove_tree(dir_ / "to");
    }
    // The next job takes what didn't change from the catalogs as they are now.
    const Output next = save({kind, "--channels", "2"}, "incremental");
    EXPECT_EQ(next.code, 0) << next.err;
    EXPECT_NE(next.out.find("0 files"), std::string::npos) << next.out;
    platform::remove_tree(dir_ / "storage");
    platform::remove_tree(source());
  }
}

// No media marks the first of several names: the content comes back under each of them.
TEST_F(Rebuilding, LinksAndDevices) {
  write_file(source("/file"), "content");
  fs::create_hard_link(source("/file"), source("/name"));
  fs::create_symlink("nowhere", source("/link"));
  ASSERT_EQ(::mkfifo(source("/pipe").c_str(), 0600), 0);
  if (is_root()) ::mknod(source("/device").c_str(), S_IFCHR | 0640, makedev(1, 3));
  ASSERT_EQ(save().code, 0);
  touch_and_save("/new", {"--channels", "1"});
  for (const char* piece : {"demo.1.0.cat", "demo.2.0.cat"}) fs::remove(storage(piece));
  EXPECT_EQ(rebuild().code, 0);
  for (const char* seq : {"1", "2"}) expect_verified({"--seq", seq});
  EXPECT_EQ(restore("to").code, 0);
  Snapshot found = snapshot(back());
  EXPECT_EQ(read_file(back("/name")), "content");
  for (Snapshot* each : {&before_, &found}) each->erase("/name");
  EXPECT_EQ(difference(before_, found), "");
}

INSTANTIATE_TEST_SUITE_P(, Rebuilding_On, testing::Values("directory", "remote"));

TEST_P(Rebuilding_On, ADamagedCatalogGoesOnlyIfItIsAskedFor) {
  make_chain({"--plain"});
  const std::string sound = read_file(storage("demo.2.0.cat"));
  std::string damaged = sound;
  damaged[sound.find("FILE") + 20] ^= 1;
  write_file(storage("demo.2.0.cat"), damaged);
  const Output asked = rebuild();
  EXPECT_EQ(asked.code, 1);
  EXPECT_EQ(asked.err, "error: demo.2.0.cat is damaged: --damaged makes it again\n");
  EXPECT_EQ(read_file(storage("demo.2.0.cat")), damaged);
  EXPECT_EQ(rebuild({"--damaged"}).code, 0);
  EXPECT_EQ(read_file(storage("demo.2.0.cat")), sound);
  // What a base doesn't tell is missing, and that is said.
  for (const char* piece : {"demo.1.0.cat", "demo.1.0.mtf", "demo.2.0.cat"}) {
    fs::remove(storage(piece));
  }
  const Output alone = rebuild();
  EXPECT_EQ(alone.code, 3) << alone.err;
  EXPECT_NE(alone.err.find("the catalog of job 1 isn't whole"), std::string::npos) << alone.err;
  EXPECT_EQ(fs::is_empty(dir_ / "tmp"), true);
}

}  // namespace
