#include "services/metadata.h"

#include <gtest/gtest.h>

namespace {

TEST(Metadata, Text) {
  MTF::Metadata metadata;
  metadata.set_channels(3);
  metadata.set_hash_algorithm("xxh32");
  metadata.set_seq(0xFFFFFFFF);
  metadata.set("host", "\xFF\"");
  metadata.set("seq", "mine");
  metadata.set_began(1795436729);
  std::stringstream all;
  ASSERT_TRUE(metadata.to_s(all));
  EXPECT_EQ(all.str(),
            "{\"began\":1795436729,\"channels\":3,\"hash_algorithm\":\"xxh32\",\"host\":"
            "\"\xEF\xBF\xBD\\\"\","
            "\"seq\":4294967295}");
}

TEST(Metadata, ReadsTheObjectAtTheTopAlone) {
  const struct {
    std::string text;
    bool sound;
    unsigned long long channels;
    unsigned int seq;
  } cases[] = {
      {R"({"channels":2,"seq":7,"name":"a","began":9})", true, 2, 7},
      {R"({"name":"a","x":{"channels":5,"seq":9,"began":8},"y":[{"seq":8}],"channels":1})", true, 1,
       0},
      {R"([{"channels":1}])", false, 0, 0},
      {R"({"channels":-1})", false, 0, 0},
      {R"({"seq":1})", false, 0, 0},
      {R"({"channels":1} x)", false, 0, 0},
      {"", false, 0, 0},
      {"{\"channels\":1,\"deep\":" + std::string(100000, '['), false, 0, 0},
  };
  for (const auto& c : cases) {
    MTF::Metadata_Record record;
    ASSERT_EQ(MTF::read_metadata(c.text, record), c.sound) << c.text.substr(0, 80);
    EXPECT_EQ(record.channels, c.channels);
    EXPECT_EQ(record.seq, c.seq);
    if (!c.sound) continue;
    EXPECT_EQ(record.began.value_or(-1), record.seq == 7 ? 9 : -1);
    EXPECT_EQ(record.host, (std::map<std::string, std::string>{{"name", "a"}}));
  }
}

}  // namespace
