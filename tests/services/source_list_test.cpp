#include "services/source_list.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "platform/native_path.h"
#include "tests/support/temp_dir.h"

namespace {

using test_support::Temp_Dir;
using test_support::write_file;

class Source_List : public testing::Test {
 protected:
  Source_List() {
    for (const char* dir : {"a", "a/sub", "b", "ab"}) ::mkdir((tmp / dir).c_str(), 0700);
    for (const char* file : {"a/z", "a/sub/f", "c"}) write_file(tmp / file, "");
    EXPECT_EQ(::symlink("a", (tmp / "l").c_str()), 0);
  }

  // The resolved paths below the temporary directory, with slashes.
  std::vector<std::string> resolve(const std::vector<std::string>& names) {
    std::list<std::string> sources;
    for (const auto& name : names) sources.push_back(tmp / name);
    std::list<MTF::source_entry> entries;
    if (!MTF::to_source_list_type(sources, exclude, nullptr, nullptr, entries)) return {"failed"};
    std::string root;
    platform::system_path(tmp.path(), root);
    std::vector<std::string> paths;
    for (const auto& entry : entries) {
      std::string path = entry.path.substr(root.size() + 1);
      std::replace(path.begin(), path.end(), '\\', '/');
      paths.push_back(path);
    }
    return paths;
  }

  const Temp_Dir tmp;
  std::list<std::string> exclude;
};

TEST_F(Source_List, OrderOfTheWalkWithNothingTwice) {
  using Paths = std::vector<std::string>;
  EXPECT_EQ(resolve({"b", "ab", "a", "c"}), (Paths{"c", "a/", "ab/", "b/"}));
  EXPECT_EQ(resolve({"a/sub", "a/z", "b"}), (Paths{"a/z", "a/sub/", "b/"}));
  EXPECT_EQ(resolve({"a/sub/f", "a/sub", "a", "a/", "./a", "ab"}), (Paths{"a/", "ab/"}));
  EXPECT_EQ(resolve({"a/z", "a"}), (Paths{"a/"}));
  EXPECT_EQ(resolve({"c", "c"}), (Paths{"c"}));
  EXPECT_EQ(resolve({"l/z", "l/sub", "l", "l"}), (Paths{"l", "l/z", "l/sub/"}));
  exclude = {tmp / "a"};
  EXPECT_EQ(resolve({"a", "a/z", "a/sub", "a"}), (Paths{"a/", "a/z", "a/sub/"}));
}

TEST_F(Source_List, RelativePathsAreRefused) {
  std::list<MTF::source_entry> entries;
  EXPECT_FALSE(MTF::to_source_list_type({"relative"}, exclude, nullptr, nullptr, entries));
  exclude = {"relative"};
  EXPECT_FALSE(MTF::to_source_list_type({tmp / "a"}, exclude, nullptr, nullptr, entries));
}

TEST_F(Source_List, ExcludesAnEntryAndAllBelow) {
  const std::list<std::string> list{"/\\a\\b", "C:"};
  for (const char* path : {"/\\a\\b", "/\\a\\b\\", "/\\a\\b\\c", "C:", "C:\\x"}) {
    EXPECT_TRUE(MTF::is_exclude(list, path)) << path;
    EXPECT_FALSE(MTF::is_exclude({}, path)) << path;
  }
  for (const char* path : {"/", "/\\a", "/\\a\\bc", "/\\a\\B", "/\\b", "D:"}) {
    EXPECT_FALSE(MTF::is_exclude(list, path)) << path;
  }
}

}  // namespace
