// Looks into jobs, whole ones and damaged ones.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <random>

#include "mtf/reader/job_view.h"
#include "services/text.h"
#include "tests/support/agent_run.h"
#include "tests/support/media_bytes.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;
using MTF::View_Tree;

class View : public Agent_Run {
 protected:
  // Two jobs of a source with files of every kind of content; a further name stands on the media
  // of the first job, another one on that of the second.
  void save_two(const Arguments& how) {
    fs::remove_all(dir_ / "storage");
    fs::remove_all(source());
    fs::create_directories(source("/d/e"));
    std::string text, noise;
    for (int i = 0; text.size() < 600000; ++i) text += std::to_string(i) + '\n';
    for (std::size_t i = 0; i < 300000; ++i) noise += static_cast<char>(random_());
    write_file(source("/text"), text);
    write_file(source("/d/noise"), noise);
    write_file(source("/d/small"), "small");
    write_file(source("/d/empty"), "");
    make_sparse(source("/d/sparse"), 3000001);
    fs::create_hard_link(source("/d/noise"), source("/d/e/noise"));
    fs::create_symlink(std::string(4000, '\\'), source("/d/link"));
    ASSERT_EQ(save(how).code, 0);
    write_file(source("/d/e/new"), text.substr(7));
    fs::create_hard_link(source("/d/e/new"), source("/also new"));
    ASSERT_EQ(save(how, "incremental").code, 0);
    take_pieces();
  }

  void take_pieces() {
    store_.held.clear();
    for (const std::string& name : pieces()) store_.held[name] = read_file(storage(name));
    ASSERT_TRUE(MTF::find_jobs(store_, "demo", jobs_, why_)) << why_;
    ASSERT_EQ(jobs_.size(), 2U);
  }

  struct Outcome {
    int right = 0;       // reads
    int refused = 0;     // entries and reads
    int miscounted = 0;  // names of a file
  };

  // Reads here and there in every file; what is given must be what the source holds.
  void look(const MTF::Job_Pieces& job, Outcome& outcome) {
    const auto view = MTF::Job_View::open(store_, job, {}, {});
    const View_Tree& tree = view->tree();
    for (View_Tree::Number number = 1; number < tree.size(); ++number) {
      if (tree.find(tree.node(number).parent, tree.name(number)) != number) continue;
      const std::string path = tree.path(number);
      const auto attributes = view->attributes(number, why_);
      if (attributes == nullptr) {
        ++outcome.refused;
        continue;
      }
      if (tree.node(number).seq == 0) continue;  // on the way to a name that may be damaged
      ASSERT_TRUE(fs::exists(fs::symlink_status(path))) << path;
      if (tree.node(number).is_directory) continue;
      if (tree.node(number).type == MTF::block_slnk) {
        EXPECT_EQ(attributes->target, fs::read_symlink(path));
        continue;
      }
      if (attributes->names != fs::hard_link_count(path)) ++outcome.miscounted;
      const std::string content = read_file(path);
      EXPECT_EQ(attributes->size, content.size()) << path;
      for (int i = 0; i < 4; ++i) read_some(*view, number, content, outcome);
    }
  }

  void read_some(MTF::Job_View& view, View_Tree::Number number, const std::string& content,
                 Outcome& outcome) {
    const auto file = view.open_file(number, why_);
    std::string data(random_() % 200000, '?');
    const std::size_t offset = random_() % (content.size() + 1);
    const long long got =
        file == nullptr ? -1 : file->read(offset, &data[0], data.size(), nullptr, why_);
    ++(got < 0 ? outcome.refused : outcome.right);
    if (got < 0) return;
    const std::string expected = content.substr(offset, data.size());
    data.resize(static_cast<std::size_t>(got));
    EXPECT_TRUE(data == expected) << view.tree().path(number);
  }

  std::mt19937 random_{1};
  test::Memory_Store store_;
  std::vector<MTF::Job_Pieces> jobs_;
  std::string why_;
};

const Arguments kinds[] = {
    {},
    {"--plain"},
    {"--compression", "zstd"},
    {"--plain", "--compression", "lz4", "--channels", "2"},
};

// A bit that flips anywhere on the storage may take files away, but never gives a wrong byte.
TEST_F(View, NeverAWrongByte) {
  for (const Arguments& how : kinds) {
    SCOPED_TRACE(testing::PrintToString(how));
    ASSERT_NO_FATAL_FAILURE(save_two(how));
    for (const MTF::Job_Pieces& job : jobs_) {
      Outcome whole;
      look(job, whole);
      EXPECT_EQ(whole.refused + whole.miscounted, 0);
      EXPECT_GE(whole.right, 20);
    }
    Outcome damaged;
    for (int round = 0; round < 25; ++round) {
      auto piece = store_.held.begin();
      std::advance(piece, random_() % store_.held.size());
      char& byte = piece->second[random_() % piece->second.size()];
      const char before = byte;
      byte = static_cast<char>(byte ^ 1 << random_() % 8);
      look(jobs_.back(), damaged);
      byte = before;
    }
    EXPECT_GT(damaged.refused, 0);
  }
}

// The medias tell it where catalogs don't: one made again has no numbers of files.
TEST_F(View, FurtherNamesOfRebuiltCatalogs) {
  ASSERT_NO_FATAL_FAILURE(save_two({}));
  for (const char* piece : {"demo.1.0.cat", "demo.2.0.cat"}) fs::remove(storage(piece));
  ASSERT_EQ(run(on_storage("rebuild", {"--tmp", dir_ / "tmp"})).code, 0);
  ASSERT_NO_FATAL_FAILURE(take_pieces());
  Outcome whole;
  look(jobs_.back(), whole);
  EXPECT_EQ(whole.refused + whole.miscounted, 0);
  EXPECT_GE(whole.right, 28);
}

TEST_F(View, Holes) {
  ASSERT_NO_FATAL_FAILURE(save_two({"--compression", "zstd"}));
  const auto view = MTF::Job_View::open(store_, jobs_.back(), {}, {});
  std::string path = source("/d/sparse");
  std::replace(path.begin(), path.end(), '/', '\\');
  const auto file = view->open_file(view->tree().find('/' + path), why_);
  ASSERT_NE(file, nullptr) << why_;
  char byte;
  const auto stop = [] { return false; };
  EXPECT_EQ(file->read(0, &byte, 1, stop, why_), -1);
  EXPECT_EQ(why_, "");
  std::string places;
  unsigned long long place = 0;
  for (bool hole = false; place < 3000001; hole = !hole) {
    ASSERT_TRUE(file->seek(place, hole, nullptr, place, why_)) << why_;
    places += std::to_string(place) + ' ';
  }
  EXPECT_EQ(places, "0 4096 1499136 1503232 2998272 3000001 ");
}

}  // namespace
