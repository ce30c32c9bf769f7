#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "tests/support/job_media.h"

namespace {

namespace fs = std::filesystem;
using test::Media_Bytes;
using test::Memory_Store;

class Restore : public testing::Test {
 protected:
  void SetUp() override {
    base_ = fs::path(testing::TempDir()) / ("restore." + std::to_string(::getpid()));
    fs::remove_all(base_);
    fs::create_directories(base_);
    to_ = base_ / "to";
  }
  void TearDown() override { fs::remove_all(base_); }

  MTF::Restore_Summary restore(Memory_Store& store, const std::vector<std::string>& paths = {},
                               unsigned int seq = 1) {
    problems_.clear();
    faults_ = 0;
    return MTF::restore_job(
        store, test::job_of(seq), {to_.string(), paths}, [this](const MTF::Fault&) { ++faults_; },
        [this](const std::string& path, const std::string& why) { problems_[path] = why; });
  }

  // Paths below a directory, with the content of files.
  static std::map<std::string, std::string> tree(const fs::path& top) {
    std::map<std::string, std::string> out;
    if (!fs::exists(top)) return out;
    for (const auto& entry : fs::recursive_directory_iterator(top)) {
      const std::string name = entry.path().lexically_relative(top).string();
      out[name] = entry.is_regular_file() ? read(entry.path()) : "<directory>";
    }
    return out;
  }
  static std::string read(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }
  static struct stat stat_of(const fs::path& path) {
    struct stat record = {};
    EXPECT_EQ(::lstat(path.c_str(), &record), 0) << path;
    return record;
  }

  fs::path base_;
  fs::path to_;
  std::map<std::string, std::string> problems_;
  int faults_ = 0;
};

using Tree = std::map<std::string, std::string>;

TEST_F(Restore, Brings_everything_back_byte_for_byte) {
  const Media_Bytes media = test::rich_media(true);
  Memory_Store store = test::store_of(media);
  const auto summary = restore(store);
  std::string holes(10000, '\0');
  holes.replace(4096, 13, "in the middle");
  EXPECT_EQ(tree(to_), (Tree{{"home", "<directory>"},
                             {"home/long", "<directory>"},
                             {"home/long/long", "xyz"},
                             {"home/me", "<directory>"},
                             {"home/me/a.txt", "hello world"},
                             {"home/me/empty", ""},
                             {"home/me/holes", holes}}));
  EXPECT_EQ(summary.directories, 3u);
  EXPECT_EQ(summary.files, 4u);
  EXPECT_EQ(summary.bytes, 11u + 10000 + 3);
  EXPECT_EQ(summary.failed, 0u);
  EXPECT_TRUE(problems_.empty());
  EXPECT_EQ(faults_, 0);
  const struct stat record = stat_of(to_ / "home/me/a.txt");
  EXPECT_EQ(record.st_mode & 07777, 0640u);
  EXPECT_EQ(record.st_mtime, test::modified_time);
  if (::geteuid() == 0) {
    EXPECT_EQ(record.st_uid, 1000u);
    EXPECT_EQ(record.st_gid, 1001u);
  }
  for (const char* path : {"home", "home/me", "home/long"}) {
    EXPECT_EQ(stat_of(to_ / path).st_mtime, test::modified_time) << path;
  }
}

TEST_F(Restore, Replaces_what_differs_and_follows_no_link) {
  Memory_Store store = test::store_of(test::small_media());
  const fs::path outside = base_ / "outside";
  fs::create_directories(to_ / "d");
  std::ofstream(outside) << "not yours";
  fs::create_symlink(outside, to_ / "d/a.txt");
  EXPECT_EQ(restore(store).files, 1u);
  EXPECT_EQ(read(to_ / "d/a.txt"), "12345");
  EXPECT_EQ(read(outside), "not yours");

  fs::remove_all(to_ / "d");
  fs::create_directory(base_ / "elsewhere");
  fs::create_directory_symlink(base_ / "elsewhere", to_ / "d");
  const auto summary = restore(store);
  EXPECT_EQ(summary.files, 0u);
  EXPECT_EQ(summary.failed, 2u);
  EXPECT_TRUE(tree(base_ / "elsewhere").empty());
}

TEST_F(Restore, No_name_leads_out_of_the_directory) {
  const char* const leaves[] = {"..",  ".",          "../escape",   "/escape",
                                "a/b", "..\\escape", "x\\..\\..\\e"};
  for (const char* leaf : leaves) {
    Memory_Store store = test::store_of(test::small_media(leaf));
    const auto summary = restore(store);
    EXPECT_EQ(summary.files, 0u) << leaf;
    EXPECT_EQ(summary.failed, 1u) << leaf;
  }
  Memory_Store nul = test::store_of(test::small_media(std::string("a\0b", 3)));
  EXPECT_EQ(restore(nul).failed, 1u);
  const char* const directories[] = {"..\\", "..\\..\\escape\\", "/escape\\", "a\\\\b\\", "a\\.\\"};
  for (const char* directory : directories) {
    Media_Bytes media;
    media.begin(test::metadata);
    media.volb("/");
    media.dirb(directory, test::modified);
    media.file("f", 1, test::modified);
    media.stan("1");
    media.end();
    Memory_Store store = test::store_of(media);
    const auto summary = restore(store);
    EXPECT_EQ(summary.files, 0u) << directory;
    EXPECT_EQ(summary.failed, 2u) << directory;
  }
  for (const auto& entry : fs::directory_iterator(base_)) EXPECT_EQ(entry.path(), to_);
  for (const auto& [path, content] : tree(to_)) EXPECT_EQ(content, "<directory>") << path;
}

TEST_F(Restore, A_volume_with_a_letter_gets_a_directory) {
  for (const char* volume : {"C:", "..", "C:\\..\\.."}) {
    Media_Bytes media;
    media.begin(test::metadata);
    media.volb(volume);
    media.file("f", 1, test::modified);
    media.stan("1");
    media.end();
    Memory_Store store = test::store_of(media);
    EXPECT_EQ(restore(store).files, volume == std::string("C:") ? 1u : 0u);
  }
  EXPECT_EQ(tree(base_), (Tree{{"to", "<directory>"}, {"to/C", "<directory>"}, {"to/C/f", "1"}}));
}

TEST_F(Restore, A_damaged_file_is_told_and_leaves_nothing) {
  const Media_Bytes media = test::small_media();
  std::size_t data = 0;
  for (const auto& [type, at] : media.places) {
    if (type == "STAN") data = at;
  }
  // Content, header of the stream, its checksum, the block, and the media cut off in between.
  for (const std::size_t at : {data, data - 20, data + 8 + 22, data - 22 - 90}) {
    Memory_Store store = test::store_of(media);
    store.held["job.1.0.mtf"][at] ^= 1;
    const auto summary = restore(store);
    EXPECT_EQ(summary.failed, 1u) << at;
    EXPECT_EQ(problems_.count("/d/a.txt"), 1u) << at;
    EXPECT_EQ(tree(to_), (Tree{{"d", "<directory>"}})) << at;
  }
  Memory_Store store = test::store_of(media);
  store.held["job.1.0.mtf"].resize(data + 2);
  EXPECT_EQ(restore(store).failed, 1u);
  EXPECT_EQ(tree(to_), (Tree{{"d", "<directory>"}}));
}

TEST_F(Restore, A_damaged_start_of_the_media_keeps_nothing_back) {
  Memory_Store store = test::store_of(test::small_media());
  store.held["job.1.0.mtf"][2] ^= 1;
  EXPECT_EQ(restore(store).files, 1u);
  EXPECT_EQ(tree(to_), (Tree{{"d", "<directory>"}, {"d/a.txt", "12345"}}));
}

TEST_F(Restore, Takes_the_paths_asked_for_with_all_below) {
  Memory_Store store = test::store_of(test::rich_media());
  const auto summary = restore(store, {"/home/me/a.txt", "/\\home\\long", "/hom", "relative"});
  EXPECT_EQ(tree(to_), (Tree{{"home", "<directory>"},
                             {"home/long", "<directory>"},
                             {"home/long/long", "xyz"},
                             {"home/me", "<directory>"},
                             {"home/me/a.txt", "hello world"}}));
  EXPECT_EQ(summary.not_found, (std::vector<std::string>{"/hom", "relative"}));
}

TEST_F(Restore, Content_in_chunks_and_frames_is_put_together) {
  Media_Bytes media;
  media.begin(test::metadata);
  media.volb("/");
  media.file("chunks", 6, test::modified);
  media.stream("STAN", "abc", 0, 2);
  media.stream("STAN", "def", 0, 2);
  media.stream("STAN", "", 8, 4);
  media.file("frames", 6, test::modified);
  media.frames("STAN", {{"abc", "abc"}, {"def", "def"}}, 1, 6);
  media.file("more", 1, test::modified);
  media.stan("1");
  media.stream("ADAT", "alternate");
  media.end();
  Memory_Store store = test::store_of(media);
  EXPECT_EQ(restore(store).files, 3u);
  EXPECT_EQ(tree(to_), (Tree{{"chunks", "abcdef"}, {"frames", "abcdef"}, {"more", "1"}}));
  ASSERT_EQ(problems_.size(), 1u);
  EXPECT_NE(problems_["/more"].find("ADAT"), std::string::npos);
}

TEST_F(Restore, Files_of_earlier_jobs_come_from_their_media) {
  Media_Bytes first = test::small_media();
  Media_Bytes second(2);
  second.begin(test::metadata);
  second.volb("/");
  second.dirb("d\\", test::modified);
  second.end();
  second.entries.push_back(first.entries.back());
  Memory_Store store = test::store_of(first);
  for (const auto& [name, data] : test::store_of(second, 2).held) store.held[name] = data;
  EXPECT_EQ(restore(store, {}, 2).files, 1u);
  EXPECT_EQ(tree(to_), (Tree{{"d", "<directory>"}, {"d/a.txt", "12345"}}));
  store.held.erase("job.1.0.mtf");
  EXPECT_EQ(restore(store, {}, 2).failed, 1u);
}

TEST_F(Restore, Kinds_that_cant_come_back_are_told) {
  Media_Bytes media = test::small_media();
  for (const char* type : {"HLNK", "KNLS", "DEVB"}) {
    test::Catalog_Entry entry = media.entries.back();
    entry.type = type;
    entry.name = type;
    media.entries.push_back(entry);
  }
  Memory_Store store = test::store_of(media);
  EXPECT_EQ(restore(store).failed, 3u);
  EXPECT_EQ(problems_.size(), 3u);
}

TEST(List, Gives_the_tree_with_each_directory_once) {
  Media_Bytes media = test::rich_media();
  // Going back to a directory repeats it.
  media.entries.push_back(media.entries[2]);
  Memory_Store store;
  for (const char* stem : {"job.1.1", "job.1.2"}) {
    store.held[std::string(stem) + ".mtf"] = media.data;
    store.held[std::string(stem) + ".cat"] = media.catalog();
  }
  std::multimap<std::string, MTF::Job_Entry> listed;
  EXPECT_TRUE(MTF::list_job(
      store, {"job", 1, {1, 2}, true},
      [&](const MTF::Job_Entry& entry) { listed.emplace(entry.path, entry); }, nullptr));
  for (const char* once : {"/", "/\\home", "/\\home\\me", "/\\home\\long"}) {
    EXPECT_EQ(listed.count(once), 1u) << once;
  }
  EXPECT_EQ(listed.count("/\\home\\me\\a.txt"), 2u);
  const MTF::Job_Entry& entry = listed.find("/\\home\\me\\a.txt")->second;
  EXPECT_EQ(entry.size, 11u);
  EXPECT_EQ(entry.mtime, test::modified_time);
  EXPECT_EQ(entry.seq, 1u);
  EXPECT_EQ(entry.channel, 1u);

  store.held["job.1.2.cat"][200] ^= 1;
  int faults = 0;
  EXPECT_FALSE(MTF::list_job(
      store, {"job", 1, {1, 2}, true}, [](const MTF::Job_Entry&) {},
      [&](const MTF::Fault& fault) { faults += fault.piece == "job.1.2.cat"; }));
  EXPECT_GT(faults, 0);
}

}  // namespace
