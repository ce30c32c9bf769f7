// Catalogs that are lost and made again.
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <filesystem>

#include "services/bytes.h"
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

// A catalog as a reader sees it: what stands in place of a file's number tells which names are of
// one file.
std::string with_names_numbered(std::string catalog) {
  const auto number = [&](std::size_t at, std::size_t size) {
    return MTF::load_le<unsigned long long>(
        (catalog.substr(at, size) + std::string(8, '\0')).data());
  };
  std::map<std::string, char> files;
  for (std::size_t at = 118 + number(104, 8); number(at, 2) > 64; at += number(at, 2)) {
    std::string file = catalog.substr(at + 44, 4) + catalog.substr(at + 56, 4);
    if (number(at + 40, 2) != 2 && catalog.substr(at + 2, 4) != "HLNK") file.clear();
    catalog.replace(at + 44, 4, 4, files.try_emplace(file, files.size()).first->second);
    catalog.replace(at + 56, 8, 8, '\0');  // with its string type and the checksum
  }
  return catalog;
}

TEST_F(Rebuilding, LinksAndDevices) {
  struct {
    Arguments how;
    std::string lost;  // the jobs whose catalogs go
  } const cases[] = {{{"--channels", "1"}, "123"},
                     {{"--plain", "--channels", "1"}, "123"},
                     {{"--compression", "zstd", "--channels", "3"}, "123"},
                     {{"--channels", "2"}, "3"},
                     {{"--channels", "1"}, "2"}};
  for (const auto& [how, lost] : cases) {
    SCOPED_TRACE(testing::PrintToString(how));
    const auto name = [&](const char* file, const std::string& further) {
      fs::create_hard_link(source(file), source(further));
    };
    fs::create_directories(source("/d/e"));
    for (const char* file : {"/a", "/single", "/d/file", "/z\xFF\\"})
      write_file(source(file), file);
    for (const char* further : {"/b", "/d/b", "/d/e/b"}) name("/a", further);
    name("/z\xFF\\", "/d/z");
    fs::create_symlink("nowhere", source("/link"));
    name("/link", "/d/link");
    ASSERT_EQ(::mkfifo(source("/pipe").c_str(), 0600), 0);
    name("/pipe", "/d/pipe");
    if (is_root()) ::mknod(source("/device").c_str(), S_IFCHR | 0640, makedev(1, 3));
    ASSERT_EQ(save(how).code, 0);
    name("/a", "/A");
    name("/single", "/d/single");
    touch_and_save("/new", how);
    name("/single", "/d/e/single");
    touch_and_save("/newer", how);
    std::map<std::string, std::string> before;
    for (const std::string& piece : pieces()) {
      if (lost.find(piece[5]) == std::string::npos || piece.find(".cat") == std::string::npos)
        continue;
      before[piece] = read_file(storage(piece));
      fs::remove(storage(piece));
    }
    const Output made = rebuild();
    EXPECT_EQ(made.code, 0) << made.err;
    for (const auto& [piece, catalog] : before) {
      EXPECT_EQ(with_names_numbered(read_file(storage(piece))), with_names_numbered(catalog));
    }
    for (const char* seq : {"1", "2", "3"}) expect_verified({"--seq", seq});
    EXPECT_EQ(restore("to").code, 0);
    EXPECT_EQ(difference(before_, snapshot(back(), how[0] == "--plain")), "");
    for (const char* made_here : {"to", "storage", "source"})
      platform::remove_tree(dir_ / made_here);
  }
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
