// Security descriptors and extended attributes that come from a media, byte by byte.
#include <gtest/gtest.h>

#include "mtf/reader/security_view.h"
#include "tests/support/job_media.h"

namespace {

using test::Bytes;

std::string sid(unsigned int kind, unsigned int value) {
  return Bytes().raw(std::string("\1\3\0\0\0\0\0\5", 8)).le(88, 4).le(kind, 4).le(value, 4).data;
}

std::string ace(const std::string& of) {
  return Bytes().le(1, 1).le(0, 1).le(8 + of.size(), 2).le(0, 4).raw(of).data;
}

std::string descriptor(const std::string& owner, const std::string& group, const std::string& aces,
                       unsigned int count) {
  const std::size_t end = 20 + owner.size() + group.size();
  Bytes out;
  out.le(1, 2).le(0x8004, 2).le(20, 4).le(20 + owner.size(), 4).le(0, 4).le(end, 4);
  out.raw(owner).raw(group).le(2, 2).le(8 + aces.size(), 2).le(count, 2).le(0, 2);
  return out.raw(aces).data;
}

const std::string everyone("\1\1\0\0\0\0\0\1\0\0\0\0", 12);

TEST(SecurityView, FindsOwnerGroupAndMode) {
  const std::string ours = descriptor(sid(1, 1000), sid(2, 70000), ace(sid(3, 04755)), 1);
  const std::string with_others =
      descriptor(sid(1, 1000), sid(2, 70000), ace(everyone) + ace(sid(3, 04755)), 2);
  for (const std::string& data : {ours, with_others}) {
    MTF::Stat_Extent out;
    bool known = false;
    ASSERT_TRUE(MTF::read_security(data, out, known));
    ASSERT_TRUE(known);
    EXPECT_EQ(out.uid, 1000u);
    EXPECT_EQ(out.gid, 70000u);
    EXPECT_EQ(out.mode, 04755u);
  }
  // A descriptor from elsewhere is sound and says nothing of these.
  for (const std::string& data :
       {descriptor(everyone, everyone, ace(everyone), 1),
        descriptor(sid(2, 1), sid(1, 1), ace(sid(3, 0)), 1), descriptor("", "", "", 0)}) {
    MTF::Stat_Extent out;
    bool known = true;
    const bool sound = MTF::read_security(data, out, known);
    EXPECT_TRUE(sound || data.size() < 40);
    EXPECT_FALSE(known);
  }
}

// Whatever a byte becomes and wherever the data ends, nothing outside it is read.
TEST(SecurityView, DamageIsRefusedOrReadWithinItsBytes) {
  const std::string whole = descriptor(sid(1, 1), sid(2, 2), ace(everyone) + ace(sid(3, 3)), 2);
  MTF::Stat_Extent out;
  bool known;
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const std::vector<char> exact(whole.begin(), whole.begin() + static_cast<long>(size));
    EXPECT_FALSE(MTF::read_security({exact.data(), exact.size()}, out, known)) << size;
  }
  for (std::size_t at = 0; at < whole.size(); ++at) {
    for (const unsigned char byte : {0x00, 0x01, 0x7F, 0x80, 0xFF}) {
      std::vector<char> changed(whole.begin(), whole.end());
      changed[at] = static_cast<char>(byte);
      MTF::read_security({changed.data(), changed.size()}, out, known);
    }
  }
}

std::string entry(unsigned int next, const std::string& name, const std::string& value) {
  Bytes out;
  out.le(next, 4).le(0, 1).le(name.size(), 1).le(value.size(), 2).raw(name).zeros(1).raw(value);
  return out.data;
}

TEST(AttributesView, ReadsEntriesAndRefusesWhatDoesNotFit) {
  std::string whole = entry(20, "user.one", "123") + entry(0, "u", "");
  std::vector<MTF::Extended_Attribute> out;
  ASSERT_TRUE(MTF::read_attributes(whole, out));
  ASSERT_EQ(out.size(), 2u);
  EXPECT_EQ(out[0].name, "user.one");
  EXPECT_EQ(out[0].value, "123");
  EXPECT_EQ(out[1].name, "u");
  EXPECT_EQ(out[1].value, "");
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const std::vector<char> exact(whole.begin(), whole.begin() + static_cast<long>(size));
    EXPECT_FALSE(MTF::read_attributes({exact.data(), exact.size()}, out)) << size;
  }
  for (const std::string& bad :
       {entry(0, "", "value"), entry(8, "user.one", "123"),
        entry(21, "user.one", "123 ") + "abcdefghijkl", entry(4000, "user.one", "123"),
        Bytes().le(0, 4).le(0, 1).le(3, 1).le(0, 2).raw("abcd").data}) {
    EXPECT_FALSE(MTF::read_attributes(bad, out));
  }
}

// Twelve bytes of input must not cost a multiple of that in memory for as long as a stream goes on.
TEST(AttributesView, ReadsNoMoreEntriesThanAFileCanHave) {
  constexpr std::size_t most = 32768;
  std::string whole;
  for (std::size_t i = 1; i < most; ++i) whole += entry(12, "u", "ab");
  const std::string last = entry(0, "u", "ab");
  std::vector<MTF::Extended_Attribute> out;
  EXPECT_TRUE(MTF::read_attributes(whole + last, out));
  EXPECT_EQ(out.size(), most);
  EXPECT_FALSE(MTF::read_attributes(whole + entry(12, "u", "ab") + last, out));
}

}  // namespace
