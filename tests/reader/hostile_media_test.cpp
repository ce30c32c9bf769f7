// Medias that want to reach out of the directory they are restored into.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "mtf/reader/view_tree.h"
#include "tests/support/job_media.h"
#include "tests/support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using test::Media_Bytes;
using test::Memory_Store;
using test_support::write_file;

// base/outside must stay as it is; base/room/to is restored into.
class Hostile_Media : public testing::Test {
 protected:
  Hostile_Media() {
    fs::create_directories(base_ / "outside/directory");
    write_file(base_ / "outside/file", "not yours");
    fs::create_directories(to_);
    outside_ = state();
  }

  // What any change of an object outside shows in: the time of its last change among it.
  std::vector<long long> state() const {
    std::vector<long long> all;
    for (const char* name : {"", "outside", "outside/directory", "outside/file"}) {
      struct stat st = {};
      EXPECT_EQ(::lstat((base_ / name).c_str(), &st), 0) << name;
      for (const auto value : {st.st_ctim.tv_sec, st.st_ctim.tv_nsec}) all.push_back(value);
    }
    return all;
  }

  MTF::Restore_Summary restore(MTF::IPiece_Store& store) {
    faults_ = 0;
    return MTF::restore_job(
        store, test::job_of(), {to_, {}}, [this](const MTF::Fault&) { ++faults_; }, nullptr);
  }

  void expect_outside_untouched() const {
    EXPECT_EQ(state(), outside_);
    for (const auto& entry : fs::directory_iterator(base_ / "room")) EXPECT_EQ(entry.path(), to_);
  }

  // In a tree to look into, no name leads anywhere but to its own entry.
  static void expect_names_of_one_entry(MTF::IPiece_Store& store) {
    MTF::View_Tree tree;
    tree.build(store, test::job_of(), nullptr, nullptr);
    for (MTF::View_Tree::Number number = 1; number < tree.size(); ++number) {
      const std::string name(tree.name(number));
      EXPECT_TRUE(name != "." && name != ".." && name.find('/') == std::string::npos) << name;
    }
  }

  const test_support::Temp_Dir base_;
  const std::string to_ = base_ / "room/to";
  std::vector<long long> outside_;
  int faults_ = 0;
};

struct Hostile {
  const char* about;
  std::string volume;
  std::string directory;
  std::string file;
  unsigned long long restored;  // files
  unsigned char string_type = 1;
};

// A file with a mode and an owner in a directory that has them too.
Memory_Store store_of(const Hostile& row) {
  Media_Bytes media;
  media.begin(test::metadata);
  media.volb(row.volume);
  if (!row.directory.empty()) {
    media.dirb(row.directory, test::modified);
    media.ctex(040777, 12, 34, "", "");
  }
  media.file(row.file, 4, test::modified);
  media.stan("evil");
  media.ctex(0106777, 12, 34, "", "");
  media.end();
  Memory_Store store = test::store_of(media);
  std::string& catalog = store.held["job.1.0.cat"];
  const std::size_t record = catalog.rfind(row.file) - 73;
  catalog[record + 60] = static_cast<char>(row.string_type);
  test::seal_record(catalog, record);
  return store;
}

std::string utf16(const std::string& text) {
  std::string out;
  for (const char letter : text) out += {letter, '\0'};
  return out;
}

TEST_F(Hostile_Media, Nothing_outside_changes) {
  const std::string file = base_ / "outside/file";
  const Hostile rows[] = {
      {"plain names", "/", "d\\", "f", 1},
      {"a directory that is a link", "/", "link\\", "f", 0},
      {"one below a link", "/", "link\\below\\", "f", 0},
      {"a file that is a link to a file", "/", "d\\", "filelink", 1},
      {"a file that is a link to a directory", "/", "d\\", "dirlink", 1},
      {"a volume's directory that is a link", "X:", "d\\", "f", 0},
      {"a link in a file's name", "/", "", "link\\f", 0},
      {"a way up in a file's name", "/", "d\\", "..\\..\\..\\outside\\file", 0},
      {"a way up in a directory", "/", "d\\..\\..\\..\\outside\\", "file", 0},
      {"a way up in a volume", "..", "", "f", 0},
      {"a way up behind a volume", "/\\..\\..\\outside", "", "file", 0},
      {"a way up behind a volume with a letter", "C:\\..\\..", "", "f", 0},
      {"the directory itself", "/", "d\\", ".", 0},
      {"the directory above", "/", "d\\", "..", 0},
      {"the directory itself in a directory", "/", "d\\.\\", "f", 0},
      {"no name in a directory", "/", "d\\\\b\\", "f", 0},
      {"an absolute file", "/", "d\\", file, 0},
      {"an absolute directory", "/", (base_ / "outside\\"), "file", 0},
      {"an absolute volume", base_ / "outside", "", "file", 0},
      {"native separators", "/", "d\\", "../../../outside/file", 0},
      {"a NUL in a file's name", "/", "d\\", std::string("f\0/../../x", 10), 0},
      {"carried backslashes are no way up", "/", "d\\", "..\xEF\x81\x9C..\xEF\x81\x9Cx", 1},
      {"a way up in UTF-16", "/", "d\\", utf16("..\\..\\..\\outside\\file"), 0, 2},
      {"native separators in UTF-16", "/", "d\\", utf16("../../../outside/file"), 0, 2},
      {"an unknown kind of name", "/", "d\\", "f", 0, 7},
      {"a name longer than any", "/", "d\\", std::string(300, 'n'), 0},
      {"a directory in place of a file", "/", "d\\", "there", 0},
      {"a file in place of a directory", "/", "d\\regular\\", "f", 0},
      {"the name of a temporary file", "/", "d\\",
       ".mtf-restore-" + std::to_string(::getpid()) + "-2", 1},
  };
  for (const Hostile& row : rows) {
    SCOPED_TRACE(row.about);
    fs::remove_all(to_);
    fs::create_directories(to_ + "/d/there/inside");
    write_file(to_ + "/d/regular", "yours");
    fs::create_directory_symlink("../../outside/directory", to_ + "/link");
    fs::create_directory_symlink("../../outside/directory", to_ + "/X");
    fs::create_symlink("../../../outside/file", to_ + "/d/filelink");
    fs::create_directory_symlink("../../../outside/directory", to_ + "/d/dirlink");
    Memory_Store store = store_of(row);
    const MTF::Restore_Summary summary = restore(store);
    EXPECT_EQ(summary.files, row.restored);
    EXPECT_EQ(summary.failed == 0 && faults_ == 0, row.restored == 1);
    expect_outside_untouched();
    EXPECT_TRUE(fs::is_directory(to_ + "/d/there/inside"));
    EXPECT_EQ(fs::file_size(to_ + "/d/regular"), 5u);
    EXPECT_TRUE(fs::is_empty(base_ / "outside/directory"));
    expect_names_of_one_entry(store);
  }
}

// Runs an action each time that the catalog is opened.
class Watched_Store : public Memory_Store {
 public:
  std::unique_ptr<MTF::IRandom_Reader> open(const std::string& name, std::string& error) override {
    if (name == "job.1.0.cat") on_catalog(++catalogs_);
    return Memory_Store::open(name, error);
  }

  std::function<void(int)> on_catalog;

 private:
  int catalogs_ = 0;
};

TEST_F(Hostile_Media, A_directory_that_becomes_a_link_gets_no_attributes) {
  Watched_Store store;
  store.held = test::store_of(test::media_of([](Media_Bytes& media) {
                 for (const char* name : {"d\\", "e\\"}) {
                   media.dirb(name, test::modified);
                   media.ctex(040777, 12, 34, "", "");
                 }
               })).held;
  // The second walk gives the directories their attributes.
  store.on_catalog = [&](int nth) {
    if (nth != 2) return;
    fs::rename(to_ + "/d", to_ + "/moved");
    fs::create_directory_symlink("../../outside/directory", to_ + "/d");
  };
  EXPECT_EQ(restore(store).directories, 2u);
  EXPECT_TRUE(fs::is_symlink(to_ + "/d"));
  expect_outside_untouched();
}

TEST_F(Hostile_Media, A_target_that_is_a_link_is_the_users_own) {
  fs::remove_all(to_);
  fs::create_directory(base_ / "room/real");
  fs::create_directory_symlink("real", to_);
  Memory_Store store = store_of({"", "/", "d\\", "f", 1});
  EXPECT_EQ(restore(store).files, 1u);
  EXPECT_TRUE(fs::exists(base_ / "room/real/d/f"));
  EXPECT_EQ(state(), outside_);
}

TEST_F(Hostile_Media, A_file_hides_no_directory_of_its_name) {
  Memory_Store store = test::store_of(test::media_of([](Media_Bytes& media) {
    media.dirb("d\\x\\", test::modified);
    media.dirb("d\\", test::modified);
    media.file("x", 0, test::modified);
  }));
  MTF::View_Tree tree;
  tree.build(store, test::job_of(), nullptr, nullptr);
  EXPECT_TRUE(tree.node(tree.find("/\\d\\x")).is_directory);
}

}  // namespace
