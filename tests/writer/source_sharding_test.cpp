// How the blocks of a walk are spread over the channels.
#include "mtf/writer/source_sharding.h"

#include <gtest/gtest.h>

#include "mtf/writer/queue_blocks.h"
#include "mtf/writer/source_consumer.h"
#include "tests/support/log_lines.h"
#include "tests/support/queue.h"

namespace {

using namespace MTF;
using Lines = std::vector<std::string>;

// Sharding fed by hand.
struct Fed_Sharding {
  explicit Fed_Sharding(unsigned channels = 2) : sharding(1, log), capture(*log) {
    EXPECT_EQ(sharding.init(channels, map), 0);
  }

  template <class Blk>
  void put_dir(const std::string& name) {
    sharding.putq(make_separated_blk<Blk>(1, name).release());
  }
  template <class Blk = Cat_File_Blk>
  void put_file(const std::string& name, unsigned long long ino = 0) {
    auto block = make_room<Blk>(name);
    block->set(1, name, 0, 0, 0, ino);
    sharding.putq(block.release());
  }
  void put_end() { sharding.putq(make_end_blk().release()); }
  Lines taken(unsigned n) {
    return test_support::entry_texts(test_support::take_blocks(*sharding.queue(n)));
  }

  std::shared_ptr<test_support::Log_Lines> log = std::make_shared<test_support::Log_Lines>();
  Ref_Ptr<Writer_Hardlink_Map> map = make_writer_hardlink_map();
  Source_Sharding sharding;
  test_support::Capture capture;
};

// The channels are xxHash32 of the full path, modulo their number, plus 1; a link goes where its
// first name went.
TEST(Sharding, GivesEachChannelItsFilesAndTheDirectoriesOfThese) {
  Fed_Sharding fed(3);
  fed.map->add(5, "X:\\tree\\first", 1);
  fed.put_dir<Cat_Vol_Blk>("X:");
  fed.put_file<Cat_PDat_Blk>("data");
  fed.put_dir<Cat_Dir_Blk>("tree\\");
  for (const char* name : {"0", "bad\xFF", "first", "new\nline"}) fed.put_file(name);
  fed.put_file<Cat_SLnk_Blk>("link");
  fed.put_dir<Cat_Dir_Blk>("tree\\de\\");
  fed.put_dir<Cat_Dir_Blk>("tree\\sub\\");
  for (const char* name : {"65536", "65537"}) fed.put_file(name);
  fed.put_file<Cat_HLnk_Blk>("second", 5);
  fed.put_dir<Cat_Vol_Blk>("X:");
  for (const char* name : {"a", "c", "g"}) fed.put_file(name);
  auto odd = make_end_blk();
  odd->hdr().type(0x31323334);
  fed.sharding.putq(odd.release());
  fed.put_end();
  ASSERT_EQ(fed.sharding.svc_i(), 0);
  EXPECT_EQ(fed.taken(1), (Lines{"VOLB X:", "PDAT data", "DIRB tree\\", "FILE new\nline",
                                 "KNLS link", "DIRB tree\\de\\", "DIRB tree\\sub\\", "FILE 65537",
                                 "VOLB X:", "FILE a", "FEND"}));
  EXPECT_EQ(fed.taken(2), (Lines{"VOLB X:", "DIRB tree\\", "FILE bad\xFF", "FILE first",
                                 "DIRB tree\\sub\\", "HLNK second", "VOLB X:", "FILE g", "FEND"}));
  EXPECT_EQ(fed.taken(3), (Lines{"VOLB X:", "DIRB tree\\", "FILE 0", "DIRB tree\\sub\\",
                                 "FILE 65536", "VOLB X:", "FILE c", "FEND"}));
  EXPECT_EQ(fed.sharding.queue(0), nullptr);
  EXPECT_EQ(fed.sharding.queue(4), nullptr);
  EXPECT_EQ(fed.log->count("32 Unknown catalog type: 0x31323334\n"), 1);
}

// What fails it stops all queues, so that nobody is left waiting.
TEST(Sharding, StopsAllQueuesWhenItFails) {
  const struct {
    std::function<void(Fed_Sharding&)> feed;
    const char* line;
  } cases[] = {
      {[](Fed_Sharding& fed) { fed.put_dir<Cat_Vol_Blk>(""); }, nullptr},
      {[](Fed_Sharding& fed) { fed.put_dir<Cat_Dir_Blk>(""); }, nullptr},
      {[](Fed_Sharding& fed) { fed.put_file(""); }, "128 Empty file name\n"},
      {[](Fed_Sharding& fed) { fed.put_file<Cat_HLnk_Blk>("l", 5); }, "1024 Unexpected error in "},
      {[](Fed_Sharding& fed) { fed.sharding.msg_queue()->deactivate(); }, nullptr},
      {[](Fed_Sharding& fed) {
         for (char c = 'a'; c < 'm'; ++c) fed.put_file(std::string(1, c));
         fed.sharding.queue(2)->deactivate();
       },
       "128 Failed to putq, errno="},
  };
  for (const auto& each : cases) {
    Fed_Sharding fed;
    each.feed(fed);
    EXPECT_EQ(fed.sharding.svc_i(), -1);
    EXPECT_EQ(fed.sharding.last_error(), -1);
    EXPECT_TRUE(each.line == nullptr || fed.log->count(each.line) == 1) << fed.log->text();
    Cat_Blk* block = nullptr;
    for (Cat_Blk_Queue* queue :
         {fed.sharding.msg_queue(), fed.sharding.queue(1), fed.sharding.queue(2)}) {
      EXPECT_EQ(queue->dequeue_head(block), -1);
    }
  }
}

TEST(Source_Consumer, EndsAtTheEndAndAtDamage) {
  test_support::Log_Lines log;
  const test_support::Capture capture(log);
  Cat_Blk_Queue queue(queue_mark, queue_mark);
  Source_Consumer consumer(&queue);
  Cat_Blk view;
  queue.enqueue_tail(make_end_blk().release());
  EXPECT_FALSE(consumer.next(view));
  EXPECT_EQ(log.count(""), 0);
  auto block = make_separated_blk<Cat_Dir_Blk>(1, "d\\");
  block->hdr().space(1);
  queue.enqueue_tail(block.release());
  EXPECT_FALSE(consumer.next(view));
  EXPECT_EQ(log.count("1024 Unexpected error in mtf/writer/source_consumer:"), 1);
  queue.deactivate();
  EXPECT_FALSE(consumer.next(view));
  EXPECT_EQ(log.count("128 Failed to get catalog block from producer, errno=108\n"), 1);
}

}  // namespace
