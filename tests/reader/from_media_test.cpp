// What comes back from a media alone, whole or not.
#include <filesystem>
#include <random>

#include "tests/support/job_media.h"
#include "tests/support/temp_dir.h"

namespace {

namespace fs = std::filesystem;

const char media_name[] = "job.1.0.mtf";

class From_Media : public testing::Test {
 protected:
  // Restores `data` and gives what came, by its path; every problem and fault is a line of `told_`.
  std::map<std::string, std::string> restore(const std::string& data) {
    test::Memory_Store store;
    store.held[media_name] = data;
    told_.clear();
    const std::string to = base_ / std::to_string(++runs_);
    summary_ = MTF::restore_job(
        store, test::job_of(), {to, {}, true},
        [this](const MTF::Fault& fault) { told_ += fault.text + '\n'; },
        [this](const std::string& path, const std::string& why) {
          told_ += path + ": " + why + '\n';
        });
    std::map<std::string, std::string> found;
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
  int runs_ = 0;
  std::string told_;
  MTF::Restore_Summary summary_;
};

TEST_F(From_Media, All_of_a_whole_one) {
  std::map<std::string, std::string> wanted;
  for (const File& file : files()) wanted[file.path] = file.content;
  EXPECT_EQ(restore(media_.data), wanted);
  EXPECT_EQ(told_, "");
  EXPECT_EQ(summary_.directories, 3u);
}

TEST_F(From_Media, What_is_whole_of_one_that_was_cut_at_any_block) {
  for (std::size_t size = 0; size <= media_.data.size(); size += 512) {
    SCOPED_TRACE(size);
    const auto found = restore(media_.data.substr(0, size));
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
  }
}

// Where a name is hit its file may have another; no bytes are ever wrong.
TEST_F(From_Media, Every_file_that_damage_missed) {
  std::mt19937 random(7);
  const std::size_t entries = media_.data.find("VOLB");
  for (int i = 0; i < 400; ++i) {
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
