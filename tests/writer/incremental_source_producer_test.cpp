#include "mtf/writer/incremental_source_producer.h"

#include <gtest/gtest.h>

#include "mtf/writer/queue_blocks.h"
#include "tests/support/log_lines.h"
#include "tests/support/media_bytes.h"
#include "tests/support/queue.h"
#include "tests/support/test_job.h"

namespace {

using test::get_le;

constexpr unsigned int job = 7;   // the number of the running job
constexpr unsigned int base = 3;  // of the job that the entries of the earlier catalog name
constexpr long long noon = 1582977600;
constexpr unsigned short first_link = 0x2;
constexpr int queue_high = 1 << 30;

// An entry of a catalog or a block of the walk.
struct Item {
  unsigned int type = MTF::block_file;
  std::string name = "file";
  long long time = noon;
  unsigned long long size = 10;
  unsigned short flags = 0;
  unsigned long long ino = 100;
};

std::unique_ptr<MTF::Cat_Blk> make_block(const Item& item) {
  // The layout of all file-like blocks is one; the type is put in by hand.
  auto block = MTF::make_room<MTF::Cat_File_Blk>(item.name);
  EXPECT_TRUE(block->set(job, item.name, item.time, item.size, item.flags, item.ino));
  block->hdr().type(item.type);
  block->hdr().checksum(block->hdr().calc_checksum());
  return block;
}

// The bytes of the entry that job `base` left for the item, 4 bytes longer with `padded`.
std::string earlier_record(const Item& item, bool padded) {
  const auto block = make_block(item);
  std::string bytes(block->data(), block->hdr().length());
  if (padded) bytes += "....";
  test::set_le(bytes, 0, bytes.size(), 2);
  test::set_le(bytes, 6, base, 2);
  test::set_le(bytes, 8, 4711, 8);
  test::seal_record(bytes, 0);
  return bytes;
}

class Incremental_Producer : public testing::Test {
 protected:
  Incremental_Producer() : input_(queue_high, queue_high) {}
  ~Incremental_Producer() override { MTF::drain(input_); }

  // An earlier catalog of the directory `a\` with `items` in it.
  void write_earlier(const std::vector<Item>& items, bool padded = false) {
    test::Catalog_Entry volume, directory;
    volume.type = "VOLB";
    volume.name = "/";
    directory.type = "DIRB";
    directory.date = test::date(2020, 2, 29);
    directory.name = std::string("a\0", 2);
    std::string bytes =
        test::Media_Bytes::catalog_of({volume, directory}, R"({"channels":0,"seq":3})", base);
    std::string records;
    for (const Item& item : items) records += earlier_record(item, padded);
    bytes.insert(bytes.size() - 64, records);
    test_support::write_file(path_, bytes);
  }

  void put(std::unique_ptr<MTF::Cat_Blk> block) {
    ASSERT_GT(input_.enqueue_tail(block.get()), 0);
    block.release();
  }

  // Runs the walk `blocks` of the directory `a\` through the task. Gives what svc_i gave.
  int run(const std::vector<Item>& blocks, bool careful = false) {
    put(MTF::make_separated_blk<MTF::Cat_Vol_Blk>(job, "/"));
    put(MTF::make_separated_blk<MTF::Cat_Dir_Blk>(job, "a\\"));
    for (const Item& item : blocks) put(make_block(item));
    put(MTF::make_end_blk());
    const test_support::Capture capture(lines_);
    task_ = std::make_unique<MTF::Incremental_Source_Producer>(path_, job, 0, &events_, nullptr);
    task_->msg_queue()->high_water_mark(queue_high);
    task_->careful(careful);
    if (task_->init(&input_, links_) != 1) return -1;
    return task_->svc_i();
  }

  // The blocks that came out, behind the volume and the directory.
  std::vector<std::string> passed() {
    task_->msg_queue()->activate();
    auto blocks = test_support::take_blocks(*task_->msg_queue());
    blocks.erase(blocks.begin(), blocks.begin() + 2);
    return blocks;
  }

  test_support::Temp_Dir dir_;
  const std::string path_ = dir_ / "earlier.cat";
  test_support::Events events_;
  test_support::Log_Lines lines_;
  MTF::Cat_Blk_Queue input_;
  MTF::Ref_Ptr<MTF::Writer_Hardlink_Map> links_ = MTF::make_writer_hardlink_map();
  std::unique_ptr<MTF::Incremental_Source_Producer> task_;
};

Item with(unsigned int type, unsigned short flags, unsigned long long ino,
          const std::string& name = "file", long long time = noon, unsigned long long size = 10) {
  return {type, name, time, size, flags, ino};
}

// The earlier entry takes the place of a block that didn't change.
TEST_F(Incremental_Producer, Decides) {
  constexpr unsigned int file = MTF::block_file, hlnk = MTF::block_hlnk, slnk = MTF::block_slnk;
  constexpr long long no_date = 520000000000;  // behind the year 16383
  const Item plain = with(file, 0, 100), link = with(hlnk, 0, 5);
  const struct {
    const char* rule;
    Item earlier, now;
    bool unchanged;
    unsigned int holder = job;  // of the content, as its first name is decided on
    bool careful = false;
  } cases[] = {
      {"the same", plain, plain, true},
      {"another size", plain, with(file, 0, 100, "file", noon, 99), true},
      {"another size, looked at closely", plain, with(file, 0, 100, "file", noon, 99), false, job,
       true},
      {"a later time", plain, with(file, 0, 100, "file", noon + 1), false},
      {"an earlier time", plain, with(file, 0, 100, "file", noon - 1), false},
      {"the first second of 1970", with(file, 0, 100, "file", 0), with(file, 0, 100, "file", 0),
       true},
      {"a time that no date can hold", with(file, 0, 100, "file", no_date),
       with(file, 0, 100, "file", no_date), false},
      {"another number, one name", plain, with(file, 0, 101), true},
      {"another name", plain, with(file, 0, 100, "file2"), false},
      {"a name that the earlier one begins with", plain, with(file, 0, 100, "fil"), false},
      {"a link in its place", plain, with(slnk, 0, 100), false},
      {"a file in a link's place", with(slnk, 0, 100), plain, false},
      {"a link", with(slnk, 0, 1), with(slnk, 0, 2), true},
      {"a device", with(MTF::block_devb, 0, 1), with(MTF::block_devb, 0, 2), true},
      {"became hard-linked", plain, with(file, first_link, 100), false},
      {"is no longer hard-linked", with(file, first_link, 100), plain, false},
      {"the same first name", with(file, first_link, 5), with(file, first_link, 5), true},
      {"first name of another file", with(file, first_link, 5), with(file, first_link, 6), false},
      {"was a further name", link, with(file, first_link, 5), false},
      {"unchanged like its first name", link, link, true, base},
      {"its first name is saved anew", link, link, false},
      {"a further name, another time", link, with(hlnk, 0, 5, "file", noon + 1), false, base},
      {"a further name of another file", with(hlnk, 0, 6), link, false, base},
      {"a further name that was a file", with(file, first_link, 5), link, false, base},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.rule);
    links_ = MTF::make_writer_hardlink_map();
    links_->add(row.now.ino, "/\\a\\file", row.holder);
    write_earlier({row.earlier});
    EXPECT_EQ(run({row.now}, row.careful), 0);
    const auto out = passed();
    ASSERT_EQ(out.size(), 2U);
    EXPECT_EQ(get_le(out[0], 6, 2), row.unchanged ? base : job);
    EXPECT_EQ(get_le(out[0], 8, 8), row.unchanged ? 4711U : 0U);
    unsigned int holder = 0;
    EXPECT_TRUE(links_->get(row.now.ino, holder));
    const bool moved = row.unchanged && (row.now.flags & first_link) != 0;
    EXPECT_EQ(holder, moved ? base : row.holder);
  }
}

TEST_F(Incremental_Producer, CountsWhatIsSavedAnew) {
  write_earlier({with(MTF::block_file, 0, 1, "b", noon, 1000)});
  ASSERT_EQ(run({with(MTF::block_file, 0, 1, "a", noon, 5), with(MTF::block_file, 0, 1, "b"),
                 with(MTF::block_file, 0, 1, "c", noon, 7), with(MTF::block_eset, 0, 0),
                 with(MTF::block_pdat, 0, 0, "pre_action_data", 0, 50)}),
            0);
  EXPECT_EQ(events_.progress().total_size, 12U);
  EXPECT_EQ(events_.progress().total_count, 2U);
  EXPECT_EQ(events_.progress().percent, 100);
  const auto out = passed();
  EXPECT_EQ(
      test_support::entry_texts(out),
      (std::vector<std::string>{"FILE a", "FILE b", "FILE c", "PDAT pre_action_data", "FEND"}));
  EXPECT_EQ(get_le(out[1], 16, 8), 1000U) << "all of the earlier block";
  EXPECT_EQ(lines_.count("32 Unknown catalog type: 0x54455345\n"), 1);
}

// Each stops the task with both queues, so that nobody is left waiting.
TEST_F(Incremental_Producer, StopsBothQueuesWhenItFails) {
  constexpr unsigned int file = MTF::block_file, hlnk = MTF::block_hlnk;
  const struct {
    Item now;
    bool padded;  // the earlier entry
    const char* line;
  } cases[] = {
      {with(file, 0, 1), true, "128 Failed to handle_file_i, catalog block length mismatch\n"},
      {with(hlnk, 0, 5), true, "128 Failed to handle_hlnk, catalog block length mismatch\n"},
      {with(hlnk, 0, 9), false,
       "128 Failed to get ino: 9 from hardlink_map, hardlink path=/\\a\\file\n"},
      {with(file, 0, 1, ""), false, "128 Empty file name\n"},
      {with(file, first_link, 77), false, "1024 Unexpected error in "},
  };
  links_->add(5, "/\\a\\first", base);
  for (const auto& row : cases) {
    write_earlier(row.now.name.empty() ? std::vector<Item>() : std::vector<Item>{row.now},
                  row.padded);
    EXPECT_EQ(run({row.now}), -1);
    EXPECT_EQ(lines_.count(row.line), 1) << row.line;
    EXPECT_EQ(task_->last_error(), -1);
    MTF::Cat_Blk* none = nullptr;
    EXPECT_EQ(input_.dequeue_head(none), -1);
    EXPECT_EQ(task_->msg_queue()->dequeue_head(none), -1);
    passed();
    MTF::drain(input_);
    input_.activate();
  }
  EXPECT_TRUE(
      lines_.asserted("hardlink_map_->update( file->hdr().ino(), file->hdr().seq()) is false"));
}

}  // namespace
