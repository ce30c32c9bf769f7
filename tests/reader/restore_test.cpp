#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>

#include "tests/support/job_media.h"
#include "tests/support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using test::Media_Bytes;
using test::Memory_Store;

using Tree = std::map<std::string, std::string>;

class Restore : public testing::Test {
 protected:
  MTF::Restore_Summary restore(Memory_Store& store, const std::vector<std::string>& paths = {}) {
    problems_.clear();
    return MTF::restore_job(
        store, test::job_of(), {to_, paths}, [this](const MTF::Fault&) { ++faults_; },
        [this](const std::string& path, const std::string& why) { problems_[path] = why; });
  }

  // Paths of what came back, with the content of files.
  Tree tree() const {
    Tree out;
    for (const auto& entry : fs::recursive_directory_iterator(to_)) {
      out[entry.path().lexically_relative(to_)] =
          entry.is_regular_file() ? test_support::read_file(entry.path()) : "<directory>";
    }
    return out;
  }

  const test_support::Temp_Dir dir_;
  const std::string to_ = dir_ / "to";
  std::map<std::string, std::string> problems_;
  int faults_ = 0;
};

TEST_F(Restore, Brings_everything_back_byte_for_byte) {
  Memory_Store store = test::store_of(test::rich_media(true));
  const auto summary = restore(store);
  std::string holes(10000, '\0');
  holes.replace(4096, 13, "in the middle");
  EXPECT_EQ(tree(), (Tree{{"home", "<directory>"},
                          {"home/long", "<directory>"},
                          {"home/long/long", "xyz"},
                          {"home/me", "<directory>"},
                          {"home/me/a.txt", "hello world"},
                          {"home/me/empty", ""},
                          {"home/me/holes", holes}}));
  EXPECT_EQ(summary.directories, 3u);
  EXPECT_EQ(summary.files, 4u);
  EXPECT_EQ(summary.bytes, 11u + 10000 + 3);
  EXPECT_EQ(summary.failed + problems_.size() + faults_, 0u);
  struct stat record;
  for (const char* path : {"/home", "/home/me", "/home/long", "/home/me/a.txt"}) {
    ASSERT_EQ(::lstat((to_ + path).c_str(), &record), 0);
    EXPECT_EQ(record.st_mtime, test::modified_time) << path;
  }
  EXPECT_EQ(record.st_mode & 07777, 0640u);
  if (::geteuid() != 0) return;
  EXPECT_EQ(record.st_uid, 1000u);
  EXPECT_EQ(record.st_gid, 1001u);
}

TEST_F(Restore, A_damaged_file_is_told_and_leaves_nothing) {
  const Media_Bytes media = test::small_media();
  const std::size_t data = test::place_of(media, "STAN");
  const Memory_Store whole = test::store_of(media);
  // Content, header of the stream, its checksum, the block, and the media cut off in between.
  for (const std::size_t at : {data, data - 20, data + 8 + 22, data - 22 - 90, std::size_t{0}}) {
    Memory_Store store = whole;
    std::string& bytes = store.held["job.1.0.mtf"];
    if (at == 0) bytes.resize(data + 2);
    bytes[at] ^= 1;
    EXPECT_EQ(restore(store).failed, 1u) << at;
    EXPECT_EQ(problems_.count("/d/a.txt"), 1u) << at;
    EXPECT_EQ(tree(), (Tree{{"d", "<directory>"}})) << at;
  }
  // What stands around the files keeps nothing back.
  Memory_Store store = whole;
  store.held["job.1.0.mtf"][2] ^= 1;
  EXPECT_EQ(restore(store).files, 1u);
  EXPECT_EQ(tree(), (Tree{{"d", "<directory>"}, {"d/a.txt", "12345"}}));
}

TEST_F(Restore, Takes_the_paths_asked_for_with_all_below) {
  Memory_Store store = test::store_of(test::rich_media());
  const auto summary = restore(store, {"/home/me/a.txt", "/\\home\\long", "/hom", "relative"});
  EXPECT_EQ(tree(), (Tree{{"home", "<directory>"},
                          {"home/long", "<directory>"},
                          {"home/long/long", "xyz"},
                          {"home/me", "<directory>"},
                          {"home/me/a.txt", "hello world"}}));
  EXPECT_EQ(summary.not_found, (std::vector<std::string>{"/hom", "relative"}));
}

TEST_F(Restore, Content_in_chunks_and_frames_is_put_together) {
  Memory_Store store = test::store_of(test::media_of([](Media_Bytes& media) {
    media.file("chunks", 6, test::modified);
    media.stream("STAN", "abc", 0, 2);
    media.stream("STAN", "def", 0, 2);
    media.stream("STAN", "", 8, 4);
    media.file("frames", 6, test::modified);
    media.frames("STAN", {{"abc", "abc"}, {"def", "def"}}, 1, 6);
    media.file("more", 1, test::modified);
    media.stan("1");
    media.stream("ADAT", "alternate");
    media.file("short", 6, test::modified);
    media.frames("STAN", {{"abcdef", "0abc"}}, 1, 6);  // in LZ4 three bytes and no more
  }));
  // The name that the first file would have until it is whole.
  const std::string taken = ".mtf-restore-" + std::to_string(::getpid()) + "-1";
  fs::create_directory(to_);
  test_support::write_file(to_ + '/' + taken, "");
  EXPECT_EQ(restore(store).files, 3u);
  EXPECT_EQ(tree(), (Tree{{taken, ""}, {"chunks", "abcdef"}, {"frames", "abcdef"}, {"more", "1"}}));
  ASSERT_EQ(problems_.size(), 2u);
  EXPECT_NE(problems_["/more"].find("ADAT"), std::string::npos);
  EXPECT_NE(problems_["/short"].find("can't be expanded"), std::string::npos);
}

TEST_F(Restore, Kinds_that_cant_come_back_are_told) {
  Media_Bytes media = test::small_media();
  for (const char* type : {"HLNK", "KNLS", "DEVB"}) {
    media.entries.push_back(media.entries.back());
    media.entries.back().type = media.entries.back().name = type;
  }
  Memory_Store store = test::store_of(media);
  EXPECT_EQ(restore(store).failed, 3u);
  EXPECT_EQ(problems_.size(), 3u);
}

}  // namespace
