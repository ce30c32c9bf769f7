#include "oxbase/directory_iterator.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "platform/native_path.h"
#include "tests/support/temp_dir.h"

namespace {

using oxbase::path_less;
using Iterator = oxbase::Directory_Iterator_T<char>;
using test_support::Temp_Dir;

std::string system_form(const std::string& native) {
  std::string out;
  EXPECT_TRUE(platform::system_path(native, out));
  return out;
}

TEST(Directory_Iterator, EndAndFailure) {
  Temp_Dir dir;
  Iterator none(nullptr), nowhere(std::string{}), missing(system_form(dir / "missing"));
  EXPECT_FALSE(none.has_handle() || nowhere.has_handle() || missing.has_handle());
  EXPECT_EQ(none.ec(), 0);
  EXPECT_EQ(missing.ec(), ENOENT);
  EXPECT_EQ(missing, Iterator());
  EXPECT_EQ(Iterator("Q:\\x").ec(), ENODEV);
  Iterator empty(system_form(dir.path()));
  EXPECT_TRUE(empty.has_handle());
  EXPECT_EQ(empty, Iterator());
  EXPECT_EQ(empty.ec(), 0);
}

TEST(Path_Order, ABackslashIsBelowAllAndAPrefixFirst) {
  // Each comes before all behind it.
  const std::string order[] = {"x", "x\\", "x\\y", "x\x01", "x.y", "x\x7F", "x\xFF", "y"};
  for (std::size_t i = 0; i < std::size(order); ++i) {
    for (std::size_t j = 0; j < std::size(order); ++j) {
      for (std::size_t common = 0; common <= 17; ++common) {
        const std::string in(common, 'c');
        EXPECT_EQ(path_less(in + order[i], in + order[j]), i < j) << in << order[i] << order[j];
      }
    }
  }
}

}  // namespace
