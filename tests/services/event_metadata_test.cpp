// What the host is told and what it tells.
#include <gtest/gtest.h>

#include "services/event_handler.h"
#include "services/json_spirit.h"
#include "services/metadata.h"

namespace {

class Silent : public MTF::Event_Handler {
 public:
  int handle_event(int, const json_spirit::Value&) override { return 0; }
};

TEST(Event_Handler, ProgressAddsUpTheChannels) {
  Silent handler;
  handler.set_channels(2);
  handler.add_size(1, 10);
  handler.add_size(2, 5);
  handler.add_size(2, 1ULL << 40);
  handler.add_size(3, 999);  // there is none
  handler.add_processed_count(1);
  handler.add_processed_count(2);
  handler.total_size(0, 70, 40);
  handler.total_size(0, 80, 50);
  handler.refresh_total_count(9, 100);
  const auto now = handler.progress();
  EXPECT_EQ(now.done_size, 15 + (1ULL << 40));
  EXPECT_EQ(now.done_count, 3U);
  EXPECT_EQ(now.total_size, 80U);
  EXPECT_EQ(now.total_count, 9U);
  EXPECT_EQ(now.percent, 100);
  EXPECT_FALSE(handler.is_canceling());
  handler.set_canceling();
  EXPECT_TRUE(handler.is_canceling());
}

TEST(Event_Handler, ChannelsBeyondMemoryAreNotCounted) {
  Silent handler;
  handler.set_channels(1ULL << 60);
  handler.add_size(1, 10);
  EXPECT_EQ(handler.progress().done_size, 0U);
}

TEST(Metadata, Text) {
  MTF::Metadata metadata;
  std::stringstream alone;
  ASSERT_TRUE(metadata.to_s(alone));
  EXPECT_EQ(alone.str(), R"({"channels":0,"seq":0})");
  metadata.set_channels(3);
  metadata.set_hash_algorithm("xxh32");
  metadata.set_seq(0xFFFFFFFF);
  metadata.set("host", "\xFF\"");
  metadata.set("seq", "mine");
  std::stringstream all;
  ASSERT_TRUE(metadata.to_s(all));
  EXPECT_EQ(all.str(),
            "{\"channels\":3,\"hash_algorithm\":\"xxh32\",\"host\":\"\xEF\xBF\xBD\\\"\","
            "\"seq\":4294967295}");
  std::stringstream closed;
  closed.setstate(std::ios::badbit);
  EXPECT_FALSE(metadata.to_s(closed));
}

TEST(Metadata, ReadsTheObjectAtTheTopAlone) {
  const struct {
    std::string text;
    bool sound;
    unsigned long long channels;
    unsigned int seq;
  } cases[] = {
      {R"({"channels":2,"seq":7,"name":"a"})", true, 2, 7},
      {R"({"name":"a","x":{"channels":5,"seq":9,"name":"b"},"y":[{"seq":8}],"channels":1})", true,
       1, 0},
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
    EXPECT_EQ(record.host, (std::map<std::string, std::string>{{"name", "a"}}));
  }
}

}  // namespace
