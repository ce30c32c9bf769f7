// The bytes of catalog blocks and their way through a queue.
#include <gtest/gtest.h>

#include "mtf/catalog/catalog_helper.h"
#include "mtf/catalog/task_base.h"
#include "services/text.h"
#include "tests/support/hex.h"

namespace {

using namespace MTF;
using test_support::hex_of;
using test_support::sealed;

constexpr long long leap_day = 951827696;

TEST(Cat_Blk, ABlockOfTheQueue) {
  const auto blk = Cat_Blk::create<Cat_File_Blk>(78);
  ASSERT_NE(blk, nullptr);
  ASSERT_TRUE(blk->set(0x0102, "a.txt", leap_day, 1ULL << 40, 0x2, 0x1122334455667788ULL));
  EXPECT_EQ(hex_of(std::string(blk->data(), blk->capacity())),
            sealed("4E00 46494C45 0201 0000000000000000 0000000000010000 0000000000000000"
                   "0000000000000000 0200 0000 88776655 0000000000000000 44332211 01 00 0000"
                   "1F40BAC8B8 0500 4900 612E747874",
                   62));
  EXPECT_EQ(blk->hdr().ino(), 0x1122334455667788ULL);
}

TEST(Cat_Blk, BlocksOfTheCatalog) {
  Buffer image(8);
  ASSERT_TRUE(image.expand(1024));
  Dir_Blk dir(image, true);
  dir.hdr().format_logical_address((1ULL << 33) + 1);
  dir.hdr().displayable_size(5);
  dir.last_modification_date(leap_day);
  std::string bytes(75, '\x5A');
  Cat_Dir_Blk entry(&bytes[0], 75);
  ASSERT_TRUE(entry.set(dir, 7, 1ULL << 42, 1ULL << 33, -4, 0x8001, 4096, std::string("d\0", 2)));
  EXPECT_EQ(hex_of(bytes),
            sealed("4B00 44495242 0700 0100000002000000 0500000000000000 0000000000040000"
                   "0000000002000000 0180 0000 00000000 0010000000000000 00000000 01 FC 0000"
                   "1F40BAC8B8 0200 4900 6400",
                   62));
  EXPECT_FALSE(entry.set(dir, 7, 0, 0, 0, 0, 0, "too"));
  Vol_Blk vol(image, true);
  ASSERT_TRUE(vol.device_name("C:"));
  bytes.assign(70, '\x5A');
  ASSERT_TRUE(Cat_Vol_Blk(&bytes[0], 70).set(vol, 7, 512, 1, 0, 0));
  EXPECT_EQ(hex_of(bytes),
            sealed("4600 564F4C42 0700 0000000000000000 0000000000000000 0002000000000000"
                   "0100000000000000 0000 0000 00000000 0000000000000000 00000000 01 00 0000"
                   "0200 4400 433A",
                   62));
  bytes.assign(64, '\x5A');
  Cat_Blk(&bytes[0], 64, false).set_end();
  EXPECT_EQ(hex_of(bytes), sealed("4000 46454E44" + std::string(116, '0'), 62));
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

// The queue counts objects, whatever the length of their names and the size of their chunks.
TEST(Queue, Takes16667Entries) {
  static_assert(sizeof(Cat_Blk) == 48);
  Block_Queue queue;
  for (int i = 0; i < 16667; ++i) {
    ASSERT_FALSE(queue.is_full()) << i;
    std::unique_ptr<Cat_Blk> block(new Cat_File_Blk);
    ASSERT_TRUE(queue.put(block) && (i < 16665 || queue.hand_over()));
  }
  EXPECT_TRUE(queue.is_full());
  drain(queue);
  EXPECT_TRUE(queue.is_empty());
}

struct Task : Task_Base {
  explicit Task(bool no_memory) : Task_Base(nullptr), no_memory_(no_memory) {}
  int svc_i() override {
    if (no_memory_) throw std::bad_alloc();
    throw std::runtime_error("test");
  }
  const bool no_memory_;
};

TEST(Task, AnExceptionFailsTheTaskAndWakesWhoWaits) {
  for (const bool no_memory : {false, true}) {
    Task task(no_memory);
    EXPECT_EQ(task.svc(), -1);
    EXPECT_EQ(task.last_error(), -1);
    EXPECT_NE(task.msg_queue()->deactivated(), 0);
    EXPECT_EQ(task.err_code(), 0U);
  }
}

}  // namespace
