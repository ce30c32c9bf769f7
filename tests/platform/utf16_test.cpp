#include "platform/utf16.h"

#include <gtest/gtest.h>

#include <set>

#include "tests/support/temp_dir.h"

namespace {

using platform::from_utf16;
using platform::to_utf16;

std::wstring units(std::initializer_list<unsigned> list) {
  return std::wstring(list.begin(), list.end());
}

TEST(Utf16, UnitsOfValidText) {
  EXPECT_EQ(to_utf16(""), L"");
  EXPECT_EQ(to_utf16("a long run of ASCII, then \xC3\xA9!"), L"a long run of ASCII, then \u00E9!");
  EXPECT_EQ(to_utf16("\xE2\x82\xAC\x7F"), units({0x20AC, 0x7F}));
  EXPECT_EQ(to_utf16("\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"), units({0xD800, 0xDC00, 0xDBFF, 0xDFFF}));
  EXPECT_EQ(to_utf16("\xEF\xBF\xBF"), units({0xFFFF}));
}

TEST(Utf16, InvalidBytesAreLoneUnits) {
  EXPECT_EQ(to_utf16("a\xFFz"), units({'a', 0xDCFF, 'z'}));
  EXPECT_EQ(to_utf16("\xC0\xAF"), units({0xDCC0, 0xDCAF}));                          // overlong
  EXPECT_EQ(to_utf16("\xE0\x9F\xBF"), units({0xDCE0, 0xDC9F, 0xDCBF}));              // overlong
  EXPECT_EQ(to_utf16("\xF0\x8F\xBF\xBF"), units({0xDCF0, 0xDC8F, 0xDCBF, 0xDCBF}));  // overlong
  EXPECT_EQ(to_utf16("\xED\xB2\x80"), units({0xDCED, 0xDCB2, 0xDC80}));              // surrogate
  EXPECT_EQ(to_utf16("\xF4\x90\x80\x80"), units({0xDCF4, 0xDC90, 0xDC80, 0xDC80}));  // too high
  EXPECT_EQ(to_utf16("\xE2\x82"), units({0xDCE2, 0xDC82}));                          // cut short
  EXPECT_EQ(to_utf16("\xE2\xC3\xA9"), units({0xDCE2, 0xE9}));
}

TEST(Utf16, EveryByteStringComesBackAndIsAlone) {
  std::vector<std::string> alphabet{std::string(1, '\0')};
  for (const char byte :
       std::string("a\\\x7F\x80\x8F\x90\x9B\x9C\x9F\xA0\xBF\xC0\xC2\xDF\xE0\xED\xEF"
                   "\xF0\xF4\xF5\xFF")) {
    alphabet.emplace_back(1, byte);
  }
  std::set<std::wstring> seen;
  const auto all = test_support::all_strings(alphabet, 4);
  for (const std::string& bytes : all) {
    const std::wstring wide = to_utf16(bytes);
    ASSERT_EQ(from_utf16(wide), bytes);
    seen.insert(wide);
  }
  EXPECT_EQ(seen.size(), all.size());
}

TEST(Utf16, LoneSurrogatesOfOthersAreKept) {
  EXPECT_EQ(from_utf16(units({0xD800, 'a'})),
            "\xED\xA0\x80"
            "a");
  EXPECT_EQ(from_utf16(units({0xDD00})), "\xED\xB4\x80");
  EXPECT_EQ(from_utf16(units({0xD83D, 0xDE00})), "\xF0\x9F\x98\x80");
}

}  // namespace
