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
  handler.total_size(0, 70, 40);
  handler.total_size(2, 80, 50);
  const auto now = handler.progress();
  EXPECT_EQ(now.done_size, 10 + (1ULL << 40));
  EXPECT_EQ(now.total_size, 150U);
  EXPECT_EQ(now.percent, 50);
  handler.set_channels(1ULL << 60);  // beyond memory
  handler.add_size(1, 10);
  EXPECT_EQ(handler.progress().done_size, 0U);
}

}  // namespace
