#include "services/file_path.h"

#include <gtest/gtest.h>

namespace {

TEST(File_Path, Components) {
  const struct {
    const char* path;
    char separator;
    const char *volume, *dir, *parent, *name;  // a null name: no file
  } cases[] = {
      {"/\\home\\me", '\\', "/", "home\\me\\", "home\\", "me"},
      {"/\\home\\me\\", '\\', "/", "home\\me\\", "home\\", "me"},
      {"/\\a", '\\', "/", "a\\", "", "a"},
      {"C:\\a\\b", '\\', "C:", "a\\b\\", "a\\", "b"},
      {"/", '\\', "/", "", nullptr, nullptr},
      {"C:", '\\', "C:", "", nullptr, nullptr},
      {"C:\\", '\\', "C:", "", nullptr, nullptr},
      {"/home/me", '/', "/", "home/me/", "home/", "me"},
      {"/", '/', "/", "", nullptr, nullptr},
      {"C:/a", '/', "C:", "a/", "", "a"},
  };
  for (const auto& c : cases) {
    std::string volume, dir, name;
    ASSERT_TRUE(MTF_FS::path_component(c.path, c.separator, volume, dir)) << c.path;
    EXPECT_EQ(volume, c.volume) << c.path;
    EXPECT_EQ(dir, c.dir) << c.path;
    EXPECT_EQ(MTF_FS::path_component(c.path, c.separator, volume, dir, name), c.name != nullptr);
    if (!c.name) continue;
    EXPECT_EQ(volume, c.volume) << c.path;
    EXPECT_EQ(dir, c.parent) << c.path;
    EXPECT_EQ(name, c.name) << c.path;
  }
  for (const char* path : {"", "a", "a\\b", "\\a", "/home\\a", "C:a"}) {
    std::string volume = "kept", dir, name;
    EXPECT_FALSE(MTF_FS::path_component(path, '\\', volume, dir)) << path;
    EXPECT_FALSE(MTF_FS::path_component(path, '\\', volume, dir, name)) << path;
    EXPECT_EQ(volume, "kept");
  }
}

TEST(File_Path, WhatIsSharedWithTheWantedDirectory) {
  const struct {
    const char *current, *wanted;
    std::size_t length;
  } cases[] = {
      {"", "", 0},
      {"", "a\\", 0},
      {"a\\", "", 0},
      {"a\\x\\", "a\\b\\", 2},
      {"a\\", "a\\b\\", 2},
      {"ab\\", "ac\\", 0},
      {"a\\", "ab\\", 0},
      {"ab\\", "a\\", 0},
      {"a\\b\\", "a\\b\\", 4},
      {"a\\b\\c\\", "a\\b\\", 2},  // back to an ancestor, whose block comes again
      {"a\\b\\c\\", "a\\", 0},
      {"a\\b\\c\\", "a\\bc\\", 2},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(MTF_FS::common_parent(c.current, c.wanted), c.length)
        << c.current << " to " << c.wanted;
  }
}

}  // namespace
