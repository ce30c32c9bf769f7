// What comes back from a media alone, whole or not.
#include <filesystem>
#include <random>

#include "mtf/rescue/rebuild.h"
#include "tests/support/agent_run.h"
#include "tests/support/job_media.h"
#include "tests/support/temp_dir.h"

namespace {

namespace fs = std::filesystem;

class From_Media : public testing::Test {
 protected:
  using Files = std::map<std::string, std::string>;  // content by path

  // Restores what `data` holds, by itself or by the catalog that is made of it. Every problem and
  // fault is a line of `told_`.
  Files restore(const std::string& data, bool rebuilt = false) {
    test::Memory_Store store;
    store.held["job.1.0.mtf"] = data;
    const std::string to = base_ / "to", catalog = base_ / "catalog";
    MTF::Rebuild_Summary summary;
    std::string error;
    told_.clear();
    if (rebuilt) {
      if (!MTF::rebuild_catalog(store, test::job_of(), 0, catalog, summary, {}, error)) return {};
      store.held["job.1.0.cat"] = test_support::read_file(catalog);
      EXPECT_EQ(MTF::catalog_state(store, test::job_of(), 0), MTF::Catalog_State::sound);
    }
    MTF::restore_job(
        store, test::job_of(), {to, {}, !rebuilt},
        [this](const MTF::Fault& fault) { told_ += fault.text + '\n'; },
        [this](const auto& path, const auto& why) { told_ += path + ": " + why + '\n'; });
    Files found;
    for (const auto& entry : fs::recursive_directory_iterator(to)) {
      if (!entry.is_regular_file()) continue;
      found[entry.path().string().substr(to.size())] = test_support::read_file(entry.path());
    }
    platform::remove_tree(to);
    return found;
  }

  // The files of the media, with where each ends: at the next block.
  struct File {
    std::string path;
    std::string content;
    std::size_t from;
    std::size_t to;
  };
  std::vector<File> files() const {
    const std::string holes = std::string(4096, '\0') + "in the middle";
    std::vector<File> all = {
        {"/home/me/a.txt", "hello world", 0, 0},
        {"/home/me/empty", "", 0, 0},
        {"/home/me/bad", "", 0, 0},
        {"/home/me/holes", holes + std::string(10000 - holes.size(), '\0'), 0, 0},
        {"/home/long/long", "xyz", 0, 0}};
    auto file = all.begin();
    for (const auto& [id, at] : media_.places) {
      const bool block = media_.data.compare(at, 4, id) == 0;
      if (!block) continue;
      if (file != all.begin() && std::prev(file)->to == 0) std::prev(file)->to = at;
      if (id == "FILE") (file++)->from = at;
    }
    if (all.back().to == 0) all.back().to = media_.data.find("SFMB", all.back().from);
    all.erase(all.begin() + 2);  // the job itself has marked it as corrupt
    return all;
  }

  const test::Media_Bytes media_ = test::rich_media(true);
  const test_support::Temp_Dir base_;
  std::string told_;
};

TEST_F(From_Media, What_is_whole_of_one_that_was_cut_at_any_block) {
  for (std::size_t size = 0; size <= media_.data.size(); size += 512) {
    SCOPED_TRACE(size);
    const std::string data = media_.data.substr(0, size);
    const auto found = restore(data);
    // The last filemark may be gone.
    EXPECT_EQ(told_.empty(), size == media_.data.size() || size + 4096 == media_.data.size());
    std::size_t whole = 0;
    for (const File& file : files()) {
      const auto it = found.find(file.path);
      const bool here = it != found.end();
      whole += here;
      EXPECT_TRUE(here ? it->second == file.content : file.to > size) << file.path << '\n' << told_;
    }
    EXPECT_EQ(found.size(), whole);
    const auto listed = restore(data, true);
    for (const File& file : files()) EXPECT_TRUE(file.to > size || listed.count(file.path) == 1);
  }
}

// Where a name is hit its file may have another; no bytes are ever wrong.
TEST_F(From_Media, Every_file_that_damage_missed) {
  std::mt19937 random(7);
  const std::size_t entries = media_.data.find("VOLB");
  for (int i = 0; i < 200; ++i) {
    std::string data = media_.data;
    std::vector<std::size_t> hits;
    for (int hit = 0; hit <= i % 3; ++hit) {
      const std::size_t from = i % 2 == 0 ? entries : 0;
      hits.push_back(from + random() % (data.size() - from));
      data[hits.back()] = static_cast<char>(data[hits.back()] ^ (1 + random() % 255));
    }
    SCOPED_TRACE(testing::PrintToString(hits));
    std::multiset<std::string> found;
    for (const auto& [path, content] : restore(data)) found.insert(content);
    for (const File& file : files()) {
      const bool missed = std::none_of(hits.begin(), hits.end(), [&](std::size_t at) {
        return at >= file.from && at < file.to;
      });
      const auto it = found.find(file.content);
      EXPECT_TRUE(!missed || it != found.end()) << file.path << '\n' << told_;
      if (it != found.end()) found.erase(it);
    }
    EXPECT_TRUE(found.empty()) << testing::PrintToString(found) << '\n' << told_;
    // A catalog that is made of it lists what can be restored.
    restore(data, true);
    for (const std::string& line : test_support::lines_of(told_)) {
      EXPECT_NE(line.find("its attributes: "), std::string::npos) << line;
    }
  }
}

TEST_F(From_Media, Names_of_lost_blocks_are_those_of_its_own_catalog) {
  const std::size_t directory = media_.data.find("DIRB", media_.data.find("DIRB") + 1);
  std::string data = media_.data;
  data[directory] = 'x';
  EXPECT_EQ(restore(data).count("/home/me/a.txt"), 1u);
  EXPECT_NE(told_.find("/home/me: its attributes: no sound block stands"), std::string::npos);
  data[media_.data.find("FILE")] = 'x';
  EXPECT_EQ(restore(data).size(), 3u);
  EXPECT_NE(told_.find("/home/me/a.txt: no sound block stands"), std::string::npos) << told_;
  // Without that catalog nobody knows them.
  data = media_.data.substr(0, media_.data.find("ESET"));
  data[directory] = 'x';
  EXPECT_EQ(restore(data).count("/lost+found/directory-2/a.txt"), 1u) << told_;
}

}  // namespace
