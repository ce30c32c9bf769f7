#include "services/event_handler.h"

#include <gtest/gtest.h>

#include "services/json_spirit.h"

namespace {

class Silent : public MTF::Event_Handler {
  int handle_event(int, const json_spirit::Value&) override { return 0; }
};

TEST(Event_Handler, ProgressAddsUpTheChannels) {
  Silent handler;
  handler.set_channels(2);
  handler.add_size(1, 10);
  handler.add_size(2, 1ULL << 40);
  handler.add_size(3, 999);  // there is none
  handler.total_size(1, 70, 100);
  handler.refresh_total_count(1, 7, 100);
  handler.total_size(2, 80, 50);
  handler.refresh_total_count(2, 8, 50);
  const auto now = handler.progress();
  EXPECT_EQ(now.done_size, 10 + (1ULL << 40));
  EXPECT_EQ(now.total_size, 150U);
  EXPECT_EQ(now.total_count, 15U);
  EXPECT_EQ(now.percent, 50);
  handler.total_size(0, 0, 60);  // a listing for both
  EXPECT_EQ(handler.progress().percent, 60);
  handler.set_channels(1ULL << 60);  // beyond memory
  handler.add_size(1, 10);
  EXPECT_EQ(handler.progress().done_size, 0U);
}

}  // namespace
