// The bytes of catalog blocks and their way through a queue.
#include <gtest/gtest.h>

#include <memory>

#include "mtf/catalog/cat_summary.h"
#include "mtf/catalog/catalog_helper.h"
#include "mtf/catalog/task_base.h"
#include "services/text.h"
#include "tests/support/media_layout.h"

namespace {

using namespace MTF;
using test_support::naive_checksum;
using test_support::number;

constexpr long long leap_day = 951827696;
const std::string leap_day_bytes("\x1F\x40\xBA\xC8\xB8");

// What stands at which offset of a header.
struct Field {
  std::size_t at;
  unsigned width;
  unsigned long long value;
};

void expect_fields(const std::string& bytes, const std::vector<Field>& fields) {
  for (const Field& field : fields) {
    EXPECT_EQ(number(bytes, field.at, field.width), field.value) << "at " << field.at;
  }
}

TEST(Cat_Blk, ABlockOfTheQueue) {
  const std::unique_ptr<Cat_File_Blk> made =
      Cat_Blk::create<Cat_File_Blk>(static_cast<unsigned>(Cat_File_Blk::buffer_need(5)));
  ASSERT_NE(made, nullptr);
  Cat_File_Blk& blk = *made;
  EXPECT_EQ(blk.capacity(), 78U);
  ASSERT_TRUE(blk.set(0x0102, "a.txt", leap_day, 1ULL << 40, 0x2, 0x1122334455667788ULL));
  const std::string bytes(blk.data(), blk.hdr().length());
  EXPECT_EQ(bytes.size(), 78U);
  EXPECT_EQ(bytes.substr(2, 4), "FILE");
  EXPECT_EQ(bytes.substr(64, 5), leap_day_bytes);
  EXPECT_EQ(bytes.substr(73), "a.txt");
  expect_fields(bytes, {{0, 2, 78},
                        {6, 2, 0x0102},
                        {8, 8, 0},
                        {16, 8, 1ULL << 40},
                        {24, 8, 0},
                        {32, 8, 0},
                        {40, 2, 2},
                        {42, 2, 0},
                        {44, 4, 0x55667788},
                        {48, 8, 0},
                        {56, 4, 0x11223344},
                        {60, 1, 1},
                        {61, 1, 0},
                        {62, 2, naive_checksum(bytes.data(), 62)},
                        {69, 2, 5},
                        {71, 2, 73}});
  EXPECT_EQ(blk.hdr().ino(), 0x1122334455667788ULL);
}

TEST(Cat_Blk, ABlockOfTheCatalog) {
  Buffer image(8);
  ASSERT_TRUE(image.expand(1024));
  Dir_Blk dir(image, true);
  dir.hdr().format_logical_address((1ULL << 33) + 1);
  dir.hdr().displayable_size(5);
  dir.last_modification_date(leap_day);
  std::string bytes(75, '\x5A');
  Cat_Dir_Blk entry(&bytes[0], 75);
  ASSERT_TRUE(entry.set(dir, 7, 1ULL << 42, 1ULL << 33, -4, 0x8001, 4096, std::string("d\0", 2)));
  EXPECT_EQ(bytes.substr(2, 4), "DIRB");
  EXPECT_EQ(bytes.substr(64, 5), leap_day_bytes);
  EXPECT_EQ(bytes.substr(73), std::string("d\0", 2));
  expect_fields(bytes, {{0, 2, 75},
                        {6, 2, 7},
                        {8, 8, (1ULL << 33) + 1},
                        {16, 8, 5},
                        {24, 8, 1ULL << 42},
                        {32, 8, 1ULL << 33},
                        {40, 2, 0x8001},
                        {48, 8, 4096},
                        {60, 1, 1},
                        {61, 1, 0xFC},
                        {62, 2, naive_checksum(bytes.data(), 62)}});
  EXPECT_FALSE(entry.set(dir, 7, 0, 0, 0, 0, 0, "too"));
}

TEST(Cat_Blk, AVolumeHasItsNameBehindTheHeader) {
  Buffer image(8);
  ASSERT_TRUE(image.expand(1024));
  Vol_Blk vol(image, true);
  ASSERT_TRUE(vol.device_name("C:"));
  std::string bytes(70, '\x5A');
  Cat_Vol_Blk entry(&bytes[0], 70);
  ASSERT_TRUE(entry.set(vol, 7, 512, 1, 0, 0));
  EXPECT_EQ(test_support::entry_text(bytes), "VOLB C:");
  expect_fields(bytes, {{0, 2, 70}, {24, 8, 512}, {32, 8, 1}, {64, 2, 2}, {66, 2, 68}});
}

TEST(Cat_Blk, TheEnd) {
  Cat_Blk end;
  ASSERT_TRUE(end.alloc_buffer(64));
  std::fill(end.data(), end.data() + 64, '\x5A');
  end.set_end();
  std::string bytes(64, '\0');
  bytes.replace(0, 6, std::string("\x40\0FEND", 6));
  const unsigned short sum = naive_checksum(bytes.data(), 62);
  bytes[62] = static_cast<char>(sum);
  bytes[63] = static_cast<char>(sum >> 8);
  EXPECT_EQ(std::string(end.data(), 64), bytes);
}

TEST(Cat_Blk, NamesThatLeadOutOfTheBlockAreNone) {
  Cat_File_Blk blk;
  ASSERT_TRUE(blk.alloc_buffer(80));
  ASSERT_TRUE(blk.set(1, "1234567", 0, 0, 0, 0));
  std::string name;
  EXPECT_TRUE(block_name(blk, name));
  for (const auto& [at, value] : {std::pair{69, 8}, {69, 0}, {71, 74}, {0, 79}, {0, 72}}) {
    Cat_Blk copy;
    ASSERT_TRUE(copy.alloc_buffer(80));
    std::copy(blk.data(), blk.data() + 80, copy.data());
    copy.data()[at] = static_cast<char>(value);
    EXPECT_FALSE(block_name(copy, name)) << at << ' ' << value;
  }
  EXPECT_FALSE(block_name(Cat_Blk(), name));
}

TEST(Cat_Blk, LongestName) {
  Cat_File_Blk blk;
  ASSERT_TRUE(blk.alloc_buffer(70000));
  EXPECT_TRUE(blk.set(1, std::string(65535 - 73, 'n'), 0, 0, 0, 0));
  EXPECT_EQ(blk.hdr().length(), 65535);
  EXPECT_FALSE(blk.set(1, std::string(65536 - 73, 'n'), 0, 0, 0, 0));
}

TEST(Cat_Summary, Layout) {
  Cat_Summary summary;
  EXPECT_EQ(std::string(summary.data(), 96), std::string(96, '\0'));
  summary.catalog_mark(1);
  summary.total_size(2);
  summary.inc_size(3);
  summary.vol_count(4);
  summary.dir_count(5);
  summary.file_count(6);
  summary.large_file_count(7);
  summary.small_file_count(8);
  summary.inc_file_count(1ULL << 40);
  summary.storage_size(~0ULL);
  const std::string bytes(summary.data(), 96);
  expect_fields(bytes, {{0, 2, 0},
                        {2, 4, 1},
                        {6, 8, 2},
                        {14, 8, 3},
                        {22, 8, 0},
                        {30, 8, 4},
                        {38, 8, 5},
                        {46, 8, 6},
                        {54, 8, 7},
                        {62, 8, 8},
                        {70, 8, 1ULL << 40},
                        {78, 8, 0},
                        {86, 8, 0},
                        {94, 2, 0}});
  EXPECT_EQ(summary.calc_checksum(), naive_checksum(bytes.data(), 94));
}

// The queue counts objects, whatever the length of their names.
TEST(Queue, Takes16667Entries) {
  static_assert(sizeof(Cat_Blk) == 48);
  Cat_Blk_Queue queue(queue_mark, queue_mark);
  for (int i = 0; i < 16667; ++i) {
    ASSERT_FALSE(queue.is_full()) << i;
    ASSERT_GT(queue.enqueue_tail(new Cat_File_Blk), 0);
  }
  EXPECT_TRUE(queue.is_full());
  drain(queue);
  EXPECT_TRUE(queue.is_empty());
}

class Task : public Task_Base {
 public:
  enum End { done, out_of_memory, thrown };
  explicit Task(End end) : Task_Base(nullptr), end_(end) {}
  int svc_i() override {
    if (end_ == out_of_memory) throw std::bad_alloc();
    if (end_ == thrown) throw std::runtime_error("test");
    return 0;
  }

 private:
  const End end_;
};

TEST(Task, AnExceptionFailsTheTaskAndWakesWhoWaits) {
  for (Task::End end : {Task::done, Task::out_of_memory, Task::thrown}) {
    Task task(end);
    EXPECT_EQ(task.svc(), end == Task::done ? 0 : -1);
    EXPECT_EQ(task.last_error(), end == Task::done ? 0 : -1);
    EXPECT_EQ(task.msg_queue()->deactivated() != 0, end != Task::done);
    EXPECT_EQ(task.err_code(), 0U);
  }
}

}  // namespace
