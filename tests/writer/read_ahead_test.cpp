// Files are read ahead of their turn while reads wait for a disk.
#include "mtf/writer/read_ahead.h"

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "mtf/writer/queue_blocks.h"
#include "mtf/writer/source_consumer.h"
#include "platform/native_path.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace MTF;

std::atomic<unsigned long long> disk_reads, step;

// What is opened is a file of this job's that has content; what is given keeps its order.
TEST(Read_Ahead, OpensTheNextFilesUntilNoReadWaits) {
  const test_support::Temp_Dir tmp;
  std::string system;
  ASSERT_TRUE(platform::system_path(tmp.path(), system));
  Cat_Blk_Queue queue(queue_mark, queue_mark);
  std::vector<std::string> names;
  std::set<std::string> awaited;
  const auto put = [&](auto block, const std::string& name) {
    queue.enqueue_tail(block.release());
    names.push_back(name);
  };
  put(make_separated_blk<Cat_Vol_Blk>(1, "/"), "/");
  const int watch = ::inotify_init1(IN_CLOEXEC);
  for (const std::string dir : {"a", "b"}) {
    std::filesystem::create_directory(tmp.path() + "/" + dir);
    const std::string path = system.substr(2) + "\\" + dir + "\\";
    put(make_separated_blk<Cat_Dir_Blk>(1, path), path);
    for (int i = 0; i < 70; ++i) {
      const std::string name = dir + std::to_string(i),
                        native = tmp.path() + "/" + dir + "/" + name;
      const bool is_fifo = i == 7, is_earlier = i == 8;
      is_fifo ? (void)::mkfifo(native.c_str(), 0600) : (void)(std::ofstream(native) << name);
      auto block = make_room<Cat_File_Blk>(name);
      block->set(is_earlier ? 0 : 1, name, 0, 3, 0, 0);
      put(std::move(block), name);
      const bool is_ahead = dir == "b" ? i < 50 : i > 62;
      if (is_ahead && !is_fifo && !is_earlier) awaited.insert(name);
    }
    ::inotify_add_watch(watch, (tmp.path() + "/" + dir).c_str(), IN_OPEN);
  }
  queue.enqueue_tail(make_end_blk().release());
  step = 1 << 20;
  Read_Ahead ahead([] { return disk_reads += step; });
  Source_Consumer consumer(&queue);
  consumer.look_ahead_for({&ahead}, Block_Paths(1, nullptr));
  std::vector<std::string> given;
  for (Cat_Blk block; consumer.next(block);) {
    std::string name;
    ASSERT_TRUE(block_name(block, name));
    std::replace(name.begin(), name.end(), '\0', '\\');
    given.push_back(name);
    char events[4096];
    while (given.size() == 65 && !awaited.empty()) {
      const ssize_t size = ::read(watch, events, sizeof events);
      for (ssize_t at = 0; at < size;) {
        const auto* event = reinterpret_cast<const inotify_event*>(events + at);
        const std::string opened = event->len != 0 ? event->name : "";
        EXPECT_TRUE(opened != "b7" && opened != "b8");
        awaited.erase(opened);
        at += static_cast<ssize_t>(sizeof *event + event->len);
      }
    }
  }
  EXPECT_EQ(given, names);
  ::close(watch);
  step = 0;
  for (int i = 0; i < 200; ++i) ahead.is_wanted();
  EXPECT_FALSE(ahead.is_wanted());
}

}  // namespace
