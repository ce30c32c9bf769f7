#include "platform/native_path.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <set>

#include "tests/support/temp_dir.h"

namespace {

using platform::Volume_Roots;

class Native_Path : public testing::Test {
 protected:
  void SetUp() override {
    Volume_Roots::instance().clear();
    ASSERT_TRUE(Volume_Roots::instance().set("C:", "/mnt/c//"));
    ASSERT_TRUE(Volume_Roots::instance().set("R:", "//"));
  }
  void TearDown() override { Volume_Roots::instance().clear(); }
};

TEST_F(Native_Path, EachNativeNameHasOneSystemName) {
  const std::string alphabet[] = {"a",    ".",    "\\",   "\xEF",         "\x81",
                                  "\x9B", "\x9C", "\xFF", "\xEF\x81\x9B", "\xEF\x81\x9C"};
  std::set<std::string> natives, systems;
  for (const std::string& native : test_support::all_strings(alphabet, 4)) {
    const std::string system = platform::system_name(native);
    ASSERT_EQ(system.find('\\'), std::string::npos);
    ASSERT_EQ(platform::native_name(system), native);
    natives.insert(native);
    systems.insert(system);
  }
  EXPECT_EQ(systems.size(), natives.size());
}

TEST_F(Native_Path, PathsOfTheSystem) {
  const struct {
    std::string system, native;
    int error;
  } cases[] = {
      {"/", "/", 0},
      {"/\\", "/", 0},
      {"/\\home\\me", "/home/me", 0},
      {"/\\home\\\\me\\", "/home/me", 0},
      {"C:", "/mnt/c", 0},
      {"C:\\a\xEF\x81\x9C"
       "b",
       "/mnt/c/a\\b", 0},
      {"C:\\\xEF\x81\x9B\xEF\x81\x9C\\x", "/mnt/c/\xEF\x81\x9C/x", 0},
      {"\\\\?\\C:\\x", "/mnt/c/x", 0},
      {"\\\\?\\/\\x", "/x", 0},
      {"R:", "/", 0},
      {"R:\\x", "/x", 0},
      {"D:\\x", "", ENODEV},
      {"", "", EINVAL},
      {"\\x", "", EINVAL},
      {"C:x", "", EINVAL},
      {"/home/me", "", EINVAL},
      {"/\\a/../b", "", EINVAL},
      {std::string("/\\a\0b", 5), "", EINVAL},
  };
  for (const auto& c : cases) {
    std::string native;
    errno = 0;
    EXPECT_EQ(platform::native_path(c.system, native), c.error == 0) << c.system;
    EXPECT_EQ(errno, c.error) << c.system;
    if (c.error == 0) {
      EXPECT_EQ(native, c.native) << c.system;
    }
  }
}

TEST_F(Native_Path, NormalForm) {
  const struct {
    std::string path, normal;
  } cases[] = {
      {"/", "/"},
      {"///", "/"},
      {"/home//me/.//a.txt/", "/\\home\\me\\a.txt"},
      {"/a/../..//b", "/\\b"},
      {"/a\\b/c",
       "/\\a\xEF\x81\x9C"
       "b\\c"},
      {"/..a/...", "/\\..a\\..."},
      {"/\\home\\.\\me\\\\x\\..\\", "/\\home\\me"},
      {"/\\", "/"},
      {"C:", "C:"},
      {"c:\\", "c:"},
      {"C:\\a\\..\\..\\b", "C:\\b"},
      {"\\\\?\\C:\\a", "C:\\a"},
      {"", ""},
      {"home/me", ""},
      {"C:home", ""},
      {"C:/home", ""},
      {"C:\\a/b", ""},
      {"\\\\?\\", ""},
      {"..", ""},
  };
  for (const auto& c : cases) {
    std::string normal;
    errno = 0;
    EXPECT_EQ(platform::system_path(c.path, normal), !c.normal.empty()) << c.path;
    EXPECT_EQ(normal, c.normal) << c.path;
    if (c.normal.empty()) {
      EXPECT_EQ(errno, EINVAL) << c.path;
    }
    std::string again;
    if (!normal.empty()) {
      EXPECT_TRUE(platform::system_path(normal, again) && again == normal);
    }
  }
}

TEST_F(Native_Path, Volumes) {
  std::string root;
  EXPECT_FALSE(Volume_Roots::instance().find("D:", root));
  EXPECT_FALSE(Volume_Roots::instance().find("/", root));
  EXPECT_FALSE(Volume_Roots::instance().set("/", "/x"));
  EXPECT_FALSE(Volume_Roots::instance().set("C:", "x"));
  EXPECT_FALSE(Volume_Roots::instance().set("1:", "/x"));
  EXPECT_TRUE(Volume_Roots::instance().find("C:", root) && root == "/mnt/c");
  EXPECT_EQ(platform::display_path("C:\\x"), "/mnt/c/x");
  EXPECT_EQ(platform::display_path("D:\\x"), "D:\\x");
}

}  // namespace
