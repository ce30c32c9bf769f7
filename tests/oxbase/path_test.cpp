#include "oxbase/path.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include "oxbase/path_conf.h"

namespace {

using oxbase::Path_Conf;
using oxbase::Path_T;

TEST(Path, PartsAreJoinedByOneSeparator) {
  const struct {
    const char *a, *b, *joined;
  } cases[] = {{"", "\\b", "\\b"},   {"a", "b", "a\\b"},         {"a\\", "b", "a\\b"},
               {"a", "\\b", "a\\b"}, {"a\\", "\\\\b", "a\\\\b"}, {"a\\", "", "a\\"},
               {"a", "", "a"},       {"C:", "\\", "C:\\"}};
  for (const auto& c : cases) {
    Path_T<char> path('\\');
    path /= c.a;
    path /= std::string(c.b);
    EXPECT_EQ(path.str(), c.joined) << c.a << " and " << c.b;
  }
}

TEST(Path, EnvironmentIsExpandedOnlyWhereAskedFor) {
  ASSERT_EQ(::setenv("MTF_PATH_TEST", "%value", 1), 0);
  Path_T<char> off('\\'), on('\\', true);
  off /= "%MTF_PATH_TEST%";
  on /= "a%MTF_PATH_TEST%b%MTF_NOT_SET%%";
  EXPECT_EQ(off.str(), "%MTF_PATH_TEST%");
  EXPECT_EQ(on.str(), "a%valueb%MTF_NOT_SET%%");
  ::unsetenv("MTF_PATH_TEST");
}

TEST(Path, PartsOfAPath) {
  const struct {
    const char *path, *dir, *base;
  } cases[] = {{"C:\\a\\b", "C:\\a", "b"},
               {"C:\\a\\b\\", "C:\\a", "b"},
               {"C:\\a", "C:", "a"},
               {"a", "", "a"},
               {"", "", ""},
               {"\\", "", ""}};
  for (const auto& c : cases) {
    EXPECT_EQ(oxbase::dirname_string(c.path, '\\'), c.dir) << c.path;
    EXPECT_EQ(oxbase::basename(c.path, '\\'), c.base) << c.path;
  }
}

TEST(Path_Conf, NoNameLeadsOut) {
  const struct {
    const char *name, *path;
  } cases[] = {{"job-1_a.b", "/t/job-1_a.b"}, {"..", "/t/%2E."},   {".", "/t/%2E"},
               {"a/../b", "/t/a%2F..%2Fb"},   {"", "/t/%"},        {"%", "/t/%25"},
               {"\xC3\xA9 ", "/t/%C3%A9%20"}, {"a\\b", "/t/a%5Cb"}};
  for (const auto& c : cases) {
    EXPECT_EQ(Path_Conf("/t", c.name, false, nullptr, 0750).str(), c.path);
    EXPECT_EQ(Path_Conf("/t/", c.name, false, nullptr, 0750).str(), c.path);
  }
  EXPECT_EQ(Path_Conf("/t", "a", false, "b", 0750).str(), "/t/a/b");
  EXPECT_EQ(Path_Conf("/t", false, nullptr, 0750).str(), "/t");
}

}  // namespace
