#include "mtf/writer/incremental_source_producer.h"

#include <gtest/gtest.h>

#include "mtf/writer/queue_blocks.h"
#include "tests/support/log_lines.h"
#include "tests/support/media_bytes.h"
#include "tests/support/temp_dir.h"

namespace {

using test_support::Capture;
using test_support::Log_Lines;

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

class Counting_Events : public MTF::Event_Handler {
 public:
  int handle_event(int, const json_spirit::Value&) override { return 0; }
};

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

  // Runs the walk `blocks` of the directory `dir` through the task. Gives what svc_i gave.
  int run(const std::vector<Item>& blocks, const std::string& dir = "a\\", bool end = true) {
    put(MTF::make_separated_blk<MTF::Cat_Vol_Blk>(job, "/"));
    put(MTF::make_separated_blk<MTF::Cat_Dir_Blk>(job, dir));
    for (const Item& item : blocks) put(make_block(item));
    if (end) put(MTF::make_end_blk());
    const Capture capture(lines_);
    task_ = std::make_unique<MTF::Incremental_Source_Producer>(path_, job, 0, &events_, nullptr);
    task_->msg_queue()->high_water_mark(queue_high);
    if (task_->init(&input_, links_) != 1) return -1;
    return task_->svc_i();
  }

  // The file-like blocks that came out, behind the volume and the directory.
  std::vector<std::unique_ptr<MTF::Cat_Blk>> passed() {
    std::vector<std::unique_ptr<MTF::Cat_Blk>> out;
    task_->msg_queue()->activate();
    while (!task_->msg_queue()->is_empty()) {
      MTF::Cat_Blk* block = nullptr;
      task_->msg_queue()->dequeue_head(block);
      out.emplace_back(block);
    }
    return out;
  }

  // Runs one block and tells whether the earlier entry took its place.
  bool is_unchanged(const Item& block) {
    EXPECT_EQ(run({block}), 0);
    const auto out = passed();
    EXPECT_EQ(out.size(), 4U);
    if (out.size() != 4) return false;
    const MTF::Cat_Hdr& header = out[2]->hdr();
    EXPECT_EQ(header.checksum(), header.calc_checksum());
    EXPECT_EQ(header.format_logical_address(), header.seq() == base ? 4711U : 0U);
    return header.seq() == base;
  }

  test_support::Temp_Dir dir_;
  const std::string path_ = dir_ / "earlier.cat";
  Counting_Events events_;
  Log_Lines lines_;
  MTF::Cat_Blk_Queue input_;
  MTF::Ref_Ptr<MTF::Writer_Hardlink_Map> links_ = MTF::make_writer_hardlink_map();
  std::unique_ptr<MTF::Incremental_Source_Producer> task_;
};

Item with(unsigned int type, unsigned short flags, unsigned long long ino,
          const std::string& name = "file", long long time = noon, unsigned long long size = 10) {
  return {type, name, time, size, flags, ino};
}

TEST_F(Incremental_Producer, Decides) {
  constexpr unsigned int file = MTF::block_file;
  constexpr long long no_date = 520000000000;  // behind the year 16383
  const Item plain = with(file, 0, 100);
  const struct {
    const char* rule;
    Item earlier, now;
    bool unchanged;
  } cases[] = {
      {"the same", plain, plain, true},
      {"another size", plain, with(file, 0, 100, "file", noon, 99), true},
      {"a later time", plain, with(file, 0, 100, "file", noon + 1), false},
      {"an earlier time", plain, with(file, 0, 100, "file", noon - 1), false},
      {"the first second of 1970", with(file, 0, 100, "file", 0), with(file, 0, 100, "file", 0),
       true},
      {"a time that no date can hold", with(file, 0, 100, "file", no_date),
       with(file, 0, 100, "file", no_date), false},
      {"another number, one name", plain, with(file, 0, 101), true},
      {"another name", plain, with(file, 0, 100, "file2"), false},
      {"a name that the earlier one begins with", plain, with(file, 0, 100, "fil"), false},
      {"a link in its place", plain, with(MTF::block_slnk, 0, 100), false},
      {"a file in a link's place", with(MTF::block_slnk, 0, 100), plain, false},
      {"a link", with(MTF::block_slnk, 0, 1), with(MTF::block_slnk, 0, 2), true},
      {"a device", with(MTF::block_devb, 0, 1), with(MTF::block_devb, 0, 2), true},
      {"became hard-linked", plain, with(file, first_link, 100), false},
      {"is no longer hard-linked", with(file, first_link, 100), plain, false},
      {"the same first name", with(file, first_link, 5), with(file, first_link, 5), true},
      {"first name of another file", with(file, first_link, 5), with(file, first_link, 6), false},
      {"was a further name", with(MTF::block_hlnk, 0, 5), with(file, first_link, 5), false},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.rule);
    links_ = MTF::make_writer_hardlink_map();
    links_->add(row.now.ino, "/\\a\\file", job);
    write_earlier({row.earlier});
    EXPECT_EQ(is_unchanged(row.now), row.unchanged);
    unsigned int holder = 0;
    EXPECT_TRUE(links_->get(row.now.ino, holder));
    const bool moved = row.unchanged && (row.now.flags & first_link) != 0;
    EXPECT_EQ(holder, moved ? base : job) << "the job that holds the content";
  }
}

TEST_F(Incremental_Producer, DecidesOnFurtherNames) {
  const Item link = with(MTF::block_hlnk, 0, 5, "link");
  const struct {
    const char* rule;
    unsigned int holder;
    Item earlier, now;
    bool unchanged;
  } cases[] = {
      {"unchanged like its first name", base, link, link, true},
      {"its first name is saved anew", job, link, link, false},
      {"another time", base, link, with(MTF::block_hlnk, 0, 5, "link", noon + 1), false},
      {"of another file", base, with(MTF::block_hlnk, 0, 6, "link"), link, false},
      {"was a file", base, with(MTF::block_file, first_link, 5, "link"), link, false},
      {"is new", base, with(MTF::block_hlnk, 0, 5, "other"), link, false},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.rule);
    links_ = MTF::make_writer_hardlink_map();
    links_->add(5, "/\\a\\first", row.holder);
    write_earlier({row.earlier});
    EXPECT_EQ(is_unchanged(row.now), row.unchanged);
  }
}

TEST_F(Incremental_Producer, CountsWhatIsSavedAnew) {
  write_earlier({with(MTF::block_file, 0, 1, "b", noon, 1000)});
  ASSERT_EQ(run({with(MTF::block_file, 0, 1, "a", noon, 5), with(MTF::block_file, 0, 1, "b"),
                 with(MTF::block_file, 0, 1, "c", noon, 7),
                 with(MTF::block_pdat, 0, 0, "pre_action_data", 0, 50)}),
            0);
  EXPECT_EQ(events_.progress().total_size, 12U);
  EXPECT_EQ(events_.progress().total_count, 2U);
  EXPECT_EQ(events_.progress().percent, 100);
  const auto out = passed();
  ASSERT_EQ(out.size(), 7U);
  EXPECT_EQ(out[3]->hdr().size(), 1000U) << "all of the earlier block";
  EXPECT_EQ(out[5]->hdr().type(), static_cast<unsigned int>(MTF::block_pdat));
  EXPECT_EQ(out[6]->hdr().type(), static_cast<unsigned int>(MTF::block_fend));
}

TEST_F(Incremental_Producer, TakesADirectoryThatIsNewAsNew) {
  write_earlier({{}});
  ASSERT_EQ(run({{}}, "b\\"), 0);
  EXPECT_EQ(passed()[2]->hdr().seq(), job);
}

TEST_F(Incremental_Producer, DropsABlockOfUnknownType) {
  write_earlier({});
  ASSERT_EQ(run({with(MTF::block_eset, 0, 0)}), 0);
  EXPECT_EQ(passed().size(), 3U);
  EXPECT_EQ(lines_.count("32 Unknown catalog type: 0x54455345\n"), 1);
}

// Each stops the task with both queues, so that nobody is left waiting.
TEST_F(Incremental_Producer, StopsBothQueuesWhenItFails) {
  const auto stopped = [&] {
    EXPECT_EQ(task_->last_error(), -1);
    MTF::Cat_Blk* none = nullptr;
    EXPECT_EQ(input_.dequeue_head(none), -1);
    EXPECT_EQ(task_->msg_queue()->dequeue_head(none), -1);
    passed();
    MTF::drain(input_);
    input_.activate();
  };
  write_earlier({{}}, true);
  EXPECT_EQ(run({{}}), -1);
  EXPECT_EQ(lines_.count("128 Failed to handle_file_i, catalog block length mismatch\n"), 1);
  stopped();
  links_->add(100, "/\\a\\first", base);
  write_earlier({with(MTF::block_hlnk, 0, 100)}, true);
  EXPECT_EQ(run({with(MTF::block_hlnk, 0, 100)}), -1);
  EXPECT_EQ(lines_.count("128 Failed to handle_hlnk, catalog block length mismatch\n"), 1);
  stopped();
  EXPECT_EQ(run({with(MTF::block_hlnk, 0, 9)}), -1);
  EXPECT_EQ(lines_.count("128 Failed to get ino: 9 from hardlink_map, hardlink path=/\\a\\file\n"),
            1);
  stopped();
  write_earlier({with(MTF::block_file, first_link, 77)});
  EXPECT_EQ(run({with(MTF::block_file, first_link, 77)}), -1) << "the map doesn't know the file";
  EXPECT_TRUE(
      lines_.asserted("hardlink_map_->update( file->hdr().ino(), file->hdr().seq()) is false"));
  stopped();
  write_earlier({});
  EXPECT_EQ(run({with(MTF::block_file, 0, 1, "")}), -1);
  EXPECT_EQ(lines_.count("128 Empty file name\n"), 1);
  stopped();
}

TEST_F(Incremental_Producer, PassesNoEndForADamagedCatalog) {
  write_earlier({with(MTF::block_file, 0, 1, "a"), with(MTF::block_file, 0, 1, "z")});
  std::string bytes = test_support::read_file(path_);
  bytes[bytes.size() - 10] = 'x';
  test_support::write_file(path_, bytes);
  EXPECT_EQ(run({with(MTF::block_file, 0, 1, "a")}), -1) << "the damage lies behind all look-ups";
  EXPECT_EQ(passed().size(), 3U);
}

TEST_F(Incremental_Producer, RefusesWhatItCanNotWorkWith) {
  const Capture capture(lines_);
  MTF::Incremental_Source_Producer task(path_, job, 0, nullptr, nullptr);
  EXPECT_EQ(task.init(nullptr, links_), -1);
  EXPECT_TRUE(lines_.asserted("queue is NULL"));
  EXPECT_EQ(task.init(&input_, MTF::Ref_Ptr<MTF::Writer_Hardlink_Map>()), -1);
  EXPECT_TRUE(lines_.asserted("hardlink_map.get() is NULL"));
  EXPECT_EQ(task.init(&input_, links_), -1) << "there is no such catalog";
  EXPECT_TRUE(lines_.asserted("finder_.open(catalog_) is false"));
}

}  // namespace
