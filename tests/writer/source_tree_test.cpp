// What a walk of real files puts on its queue, and how sharding spreads it.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include "mtf/catalog/catalog_helper.h"
#include "mtf/writer/queue_blocks.h"
#include "mtf/writer/source_consumer.h"
#include "mtf/writer/source_producer.h"
#include "mtf/writer/source_sharding.h"
#include "platform/native_path.h"
#include "tests/support/media_layout.h"
#include "tests/support/test_job.h"

namespace {

using namespace MTF;
using Lines = std::vector<std::string>;
using test_support::write_file;

// Takes all blocks off a queue as text; `flags` gets the flags of a block by its text.
Lines take_all(Cat_Blk_Queue& queue, std::map<std::string, unsigned>* flags = nullptr) {
  Lines lines;
  while (!queue.is_empty()) {
    Cat_Blk* taken = nullptr;
    queue.dequeue_head(taken);
    const std::unique_ptr<Cat_Blk> block(taken);
    lines.push_back(test_support::entry_text(std::string(block->data(), block->hdr().length())));
    EXPECT_EQ(block->hdr().checksum(), test_support::naive_checksum(block->data(), 62));
    if (flags != nullptr) (*flags)[lines.back()] = block->hdr().flags();
  }
  return lines;
}

class No_Temporaries : public IFilter {
 public:
  bool accept(const char* path, bool is_directory) const override {
    const std::string text = path;
    const std::string ending = is_directory ? "df" : ".tmp";
    return text.size() < ending.size() ||
           text.compare(text.size() - ending.size(), ending.size(), ending) != 0;
  }
};

class Source_Tree : public testing::Test {
 protected:
  Source_Tree() : producer(1, false, &events, log), capture(*log) {
    platform::Volume_Roots::instance().set("X:", tmp.path());
  }
  ~Source_Tree() override { platform::Volume_Roots::instance().clear(); }

  void make_dir(const std::string& name) { ASSERT_EQ(::mkdir((tmp / name).c_str(), 0700), 0); }

  int produce(const std::list<std::string>& sources) {
    producer.exclude_list({"X:\\tree\\dx"});
    producer.init(&sources, filter, map, shadows, "", 1, 0);
    return producer.svc_i();
  }

  const test_support::Temp_Dir tmp;
  test_support::Events events;
  std::shared_ptr<test_support::Log_Lines> log = std::make_shared<test_support::Log_Lines>();
  Ref_Ptr<Writer_Hardlink_Map> map = make_writer_hardlink_map();
  const IFilter* filter = nullptr;
  const std::map<std::string, std::string>* shadows = nullptr;
  Source_Producer producer;
  test_support::Capture capture;
};

const std::string long_name(255, 'n');

// A tree with what a file system can hold.
class Nasty_Tree : public Source_Tree {
 protected:
  Nasty_Tree() {
    for (const char* dir : {"tree", "tree/de", "tree/df", "tree/dx", "tree/sub"}) make_dir(dir);
    for (const char* file : {"tree/0", "tree/back\\slash", "tree/bad\xFF", "tree/f.tmp",
                             "tree/first", "tree/new\nline", "tree/df/x", "tree/dx/x"}) {
      write_file(tmp / file, "");
    }
    write_file(tmp / ("tree/" + long_name), "");
    write_file(tmp / "tree/sub/65536", std::string(65536, 'a'));
    write_file(tmp / "tree/sub/65537", std::string(65537, 'a'));
    EXPECT_EQ(::link((tmp / "tree/first").c_str(), (tmp / "tree/sub/second").c_str()), 0);
    EXPECT_EQ(::symlink("first", (tmp / "tree/link").c_str()), 0);
    EXPECT_EQ(::mkfifo((tmp / "tree/fifo").c_str(), 0600), 0);
    filter = &no_temporaries;
  }

  const No_Temporaries no_temporaries;
};

TEST_F(Nasty_Tree, OneStream) {
  ASSERT_EQ(produce({"X:\\tree", "X:\\tree\\sub", "X:\\tree\\first"}), 0);
  std::map<std::string, unsigned> flags;
  EXPECT_EQ(take_all(*producer.msg_queue(), &flags),
            (Lines{"VOLB X:", "DIRB tree\\", "FILE 0", "FILE back\xEF\x81\x9Cslash", "FILE bad\xFF",
                   "FILE first", "KNLS link", "FILE new\nline", "FILE " + long_name,
                   "DIRB tree\\de\\", "DIRB tree\\dx\\", "DIRB tree\\sub\\", "FILE 65536",
                   "FILE 65537", "HLNK second", "FEND"}));
  EXPECT_EQ(flags["FILE first"], 2U);
  EXPECT_EQ(flags["HLNK second"], 0U);
  EXPECT_EQ(flags["FILE 0"], 0U);
  EXPECT_EQ(
      events.texts(event_skipped),
      (Lines{
          R"({"errno":null,"message":"Excluded by filter.","name":"X:\\tree\\f.tmp","type":"file"})",
          R"({"errno":null,"message":"Unsupported file type","name":"X:\\tree\\fifo","type":"file"})",
          R"({"errno":null,"message":"Excluded by filter.","name":"X:\\tree\\df","type":"directory"})",
          R"({"errno":null,"message":"Excluded by exclude list.","name":"X:\\tree\\dx","type":"directory"})"}));
  EXPECT_EQ(log->count("32 Unsupported file type, path=X:\\tree\\fifo, mode=0x1180\n"), 1);
  EXPECT_EQ(events.skipped_dirs + events.skipped_files, 0U);
  const auto progress = events.progress();
  EXPECT_EQ(progress.percent, 100);
  EXPECT_EQ(progress.total_count, 10U);
  // The link's own size and the length of the first name count like the sizes of files.
  EXPECT_EQ(progress.total_size, 65536U + 65537 + 5 + std::string("X:\\tree\\first").size());
}

// The channels are xxHash32 of the full path, modulo 3, plus 1.
TEST_F(Nasty_Tree, ThreeStreams) {
  ASSERT_EQ(produce({"X:\\tree"}), 0);
  Source_Sharding sharding(1, log);
  ASSERT_EQ(sharding.init(3, map), 0);
  sharding.msg_queue(producer.msg_queue());
  ASSERT_EQ(sharding.svc_i(), 0);
  EXPECT_EQ(take_all(*sharding.queue(1)),
            (Lines{"VOLB X:", "DIRB tree\\", "KNLS link", "FILE new\nline", "DIRB tree\\de\\",
                   "DIRB tree\\dx\\", "DIRB tree\\sub\\", "FILE 65537", "FEND"}));
  EXPECT_EQ(take_all(*sharding.queue(2)),
            (Lines{"VOLB X:", "DIRB tree\\", "FILE back\xEF\x81\x9Cslash", "FILE bad\xFF",
                   "FILE first", "DIRB tree\\sub\\", "HLNK second", "FEND"}));
  EXPECT_EQ(take_all(*sharding.queue(3)),
            (Lines{"VOLB X:", "DIRB tree\\", "FILE 0", "FILE " + long_name, "DIRB tree\\sub\\",
                   "FILE 65536", "FEND"}));
  EXPECT_EQ(sharding.queue(0), nullptr);
  EXPECT_EQ(sharding.queue(4), nullptr);
}

TEST_F(Source_Tree, VolumesAndSharedParents) {
  for (const char* dir : {"a", "a/b", "a/c", "y", "y/e"}) make_dir(dir);
  for (const char* file : {"a/b/f", "a/c/g", "a/h", "y/e/i", "y/j"}) write_file(tmp / file, "");
  platform::Volume_Roots::instance().set("Y:", tmp / "y");
  ASSERT_EQ(produce({"Y:", "X:\\a\\b", "X:\\a\\c\\g", "X:\\a\\h"}), 0);
  EXPECT_EQ(take_all(*producer.msg_queue()),
            (Lines{"VOLB X:", "DIRB a\\", "FILE h", "DIRB a\\b\\", "FILE f", "DIRB a\\c\\",
                   "FILE g", "VOLB Y:", "FILE j", "DIRB e\\", "FILE i", "FEND"}));
}

TEST_F(Source_Tree, ShadowVolumeIsReadUnderTheSourcesName) {
  for (const char* dir : {"snap", "snap/a"}) make_dir(dir);
  write_file(tmp / "snap/a/f", "");
  const std::map<std::string, std::string> volume_map{{"X:", tmp / "snap"}};
  shadows = &volume_map;
  ASSERT_EQ(produce({"X:\\a"}), 0);
  EXPECT_EQ(take_all(*producer.msg_queue()), (Lines{"VOLB X:", "DIRB a\\", "FILE f", "FEND"}));
}

TEST_F(Source_Tree, NoSourceGivesTheEndAlone) {
  ASSERT_EQ(produce({}), 0);
  EXPECT_EQ(take_all(*producer.msg_queue()), Lines{"FEND"});
}

TEST_F(Source_Tree, PreActionDataFollowsTheFirstVolume) {
  make_dir("a");
  make_dir("y");
  platform::Volume_Roots::instance().set("Y:", tmp / "y");
  const std::list<std::string> sources{"X:\\a", "Y:"};
  Source_Producer with(1, true, nullptr, log);
  with.init(&sources, nullptr, map, nullptr, "", 1, 0);
  ASSERT_EQ(with.svc_i(), 0);
  EXPECT_EQ(take_all(*with.msg_queue()),
            (Lines{"VOLB X:", "PDAT pre_action_data", "DIRB a\\", "VOLB Y:", "FEND"}));
}

TEST_F(Source_Tree, FailuresDeactivateTheQueue) {
  EXPECT_EQ(produce({"X:\\none"}), -1);
  EXPECT_EQ(producer.last_error(), -1);
  EXPECT_EQ(log->count("128 Failed to convert sources to source_list_type\n"), 1);
  Cat_Blk* block = nullptr;
  EXPECT_EQ(producer.getq(block), -1);
  // The reader has gone.
  Source_Producer left(1, false, nullptr, log);
  const std::list<std::string> sources{"X:\\"};
  left.init(&sources, nullptr, map, nullptr, "", 1, 0);
  left.msg_queue()->deactivate();
  EXPECT_EQ(left.svc_i(), -1);
  EXPECT_EQ(log->count("128 Failed to write item, type=424C4F56, name=X:\n"), 1);
}

// Sharding fed by hand.
class Sharding : public testing::Test {
 protected:
  Sharding() : sharding(1, log), capture(*log) { EXPECT_EQ(sharding.init(2, map), 0); }

  template <class Blk>
  void put_dir(const std::string& name) {
    sharding.putq(make_separated_blk<Blk>(1, name).release());
  }

  template <class Blk>
  void put_file(const std::string& name, unsigned long long ino = 0) {
    auto block = make_room<Blk>(name);
    block->set(1, name, 0, 0, 0, ino);
    sharding.putq(block.release());
  }

  void expect_failure() {
    EXPECT_EQ(sharding.svc_i(), -1);
    EXPECT_EQ(sharding.last_error(), -1);
    Cat_Blk* block = nullptr;
    for (Cat_Blk_Queue* queue : {sharding.msg_queue(), sharding.queue(1), sharding.queue(2)}) {
      EXPECT_EQ(queue->dequeue_head(block), -1);
    }
  }

  std::shared_ptr<test_support::Log_Lines> log = std::make_shared<test_support::Log_Lines>();
  Ref_Ptr<Writer_Hardlink_Map> map = make_writer_hardlink_map();
  Source_Sharding sharding;
  test_support::Capture capture;
};

TEST_F(Sharding, AVolumeWithoutANameFails) {
  put_dir<Cat_Vol_Blk>("");
  expect_failure();
}

TEST_F(Sharding, ADirectoryWithoutANameFails) {
  put_dir<Cat_Vol_Blk>("C:");
  put_dir<Cat_Dir_Blk>("");
  expect_failure();
}

TEST_F(Sharding, AFileWithoutANameFails) {
  put_file<Cat_File_Blk>("");
  expect_failure();
  EXPECT_EQ(log->count("128 Empty file name\n"), 1);
}

TEST_F(Sharding, ALinkToNothingFails) {
  put_file<Cat_HLnk_Blk>("l", 5);
  expect_failure();
  EXPECT_TRUE(log->asserted("hardlink_map_->get( file->hdr().ino(), full.str()) is false"));
}

TEST_F(Sharding, AnInputThatIsTakenAwayFails) {
  sharding.msg_queue()->deactivate();
  expect_failure();
}

TEST_F(Sharding, AnOutputThatIsTakenAwayFails) {
  for (char c = 'a'; c < 'm'; ++c) put_file<Cat_File_Blk>(std::string(1, c));
  sharding.queue(2)->deactivate();
  expect_failure();
}

// The link goes where its first name went, and brings that channel to its own directory.
TEST_F(Sharding, ALinkFollowsItsFirstName) {
  for (unsigned i = 0; i < 8; ++i) {
    const std::string name(1, static_cast<char>('a' + i));
    map->add(i, "C:\\d\\" + name, 1);
    put_dir<Cat_Vol_Blk>("C:");
    put_dir<Cat_Dir_Blk>("d\\");
    put_file<Cat_File_Blk>(name);
    put_dir<Cat_Dir_Blk>("e\\");
    put_file<Cat_HLnk_Blk>(name, i);
  }
  sharding.putq(make_end_blk().release());
  ASSERT_EQ(sharding.svc_i(), 0);
  for (unsigned n : {1U, 2U}) {
    std::string dir, files, links;
    for (const std::string& line : take_all(*sharding.queue(n))) {
      if (line.rfind("DIRB", 0) == 0) dir = line.substr(5);
      if (line.rfind("FILE", 0) == 0) files += line.substr(5);
      if (line.rfind("HLNK", 0) == 0) links += line.substr(5);
      if (line.rfind("FILE", 0) == 0) {
        EXPECT_EQ(dir, "d\\");
      }
      if (line.rfind("HLNK", 0) == 0) {
        EXPECT_EQ(dir, "e\\");
      }
    }
    EXPECT_FALSE(files.empty());
    EXPECT_EQ(files, links);
  }
}

TEST_F(Sharding, UnknownBlocksAreDroppedAndEachChannelHasOneEnd) {
  auto odd = make_end_blk();
  odd->hdr().type(0x31323334);
  sharding.putq(odd.release());
  sharding.putq(make_end_blk().release());
  ASSERT_EQ(sharding.svc_i(), 0);
  EXPECT_EQ(log->count("32 Unknown catalog type: 0x31323334\n"), 1);
  for (unsigned n : {1U, 2U}) EXPECT_EQ(take_all(*sharding.queue(n)), Lines{"FEND"});
}

TEST_F(Sharding, RefusesToBeMadeWithoutChannelsOrMap) {
  Source_Sharding other(1, log);
  EXPECT_EQ(other.init(0, map), -1);
  EXPECT_EQ(other.init(2, Ref_Ptr<Writer_Hardlink_Map>()), -1);
  EXPECT_TRUE(log->asserted("hardlink_map.get() is NULL"));
}

TEST(Source_Consumer, EndsAtTheEndAndAtDamage) {
  test_support::Log_Lines log;
  const test_support::Capture capture(log);
  Cat_Blk_Queue queue(queue_mark, queue_mark);
  Source_Consumer consumer(&queue);
  Cat_Blk view;
  auto block = make_separated_blk<Cat_Dir_Blk>(1, "d\\");
  const char* const bytes = block->data();
  queue.enqueue_tail(block.release());
  ASSERT_TRUE(consumer.next(view));
  EXPECT_EQ(view.data(), bytes);
  queue.enqueue_tail(make_end_blk().release());
  EXPECT_FALSE(consumer.next(view));
  EXPECT_EQ(log.count(""), 0);
  block = make_separated_blk<Cat_Dir_Blk>(1, "d\\");
  block->hdr().space(1);
  queue.enqueue_tail(block.release());
  EXPECT_FALSE(consumer.next(view));
  EXPECT_EQ(log.count("1024 Unexpected error in mtf/writer/source_consumer:"), 1);
  queue.deactivate();
  EXPECT_FALSE(consumer.next(view));
  EXPECT_EQ(log.count("128 Failed to get catalog block from producer, errno=108\n"), 1);
}

TEST(Writer_Hardlink_Map, KeepsTheFirstNamesAndTheirJobs) {
  const auto map = make_writer_hardlink_map();
  std::string path = "kept";
  unsigned seq = 9;
  EXPECT_FALSE(map->get(1, path, seq));
  EXPECT_FALSE(map->get(1, seq));
  EXPECT_FALSE(map->update(1, 5));
  EXPECT_EQ(path + std::to_string(seq), "kept9");
  EXPECT_TRUE(map->add(~0ULL, "a", 1));
  EXPECT_TRUE(map->add(~0ULL, "b\\", 2));
  EXPECT_TRUE(map->update(~0ULL, 3));
  EXPECT_TRUE(map->get(~0ULL, path, seq));
  EXPECT_EQ(path + std::to_string(seq), "b\\3");
}

}  // namespace
