#include "agent/directory_storage.h"

#include <unistd.h>

#include <filesystem>

#include "agent/storage_channel.h"
#include "tests/support/media_bytes.h"
#include "tests/support/temp_dir.h"

namespace {

using agent::Storage_Channel;
using test_support::read_file;
using test_support::write_file;

constexpr int for_reading = MTF::Channel::mode_read;
constexpr int for_writing = MTF::Channel::mode_write;
constexpr const char* piece = "demo.1.0.mtf";

class Directory_Storage : public testing::Test {
 protected:
  Directory_Storage() { EXPECT_TRUE(storage_.open_for_reading(error_)) << error_; }

  bool there(const std::string& name) const { return ::access((dir_ / name).c_str(), F_OK) == 0; }

  // Ends a job of one piece.
  bool finish(Storage_Channel& channel) { return channel.close() && pieces_.name_all(error_); }

  test_support::Temp_Dir dir_;
  agent::Directory_Storage storage_{dir_.path()};
  agent::Piece_Namer pieces_{storage_};
  std::string error_;
};

// A soft filemark block written by hand, with room for two entries.
std::string filemark(unsigned long long pba, int id, std::initializer_list<unsigned int> entries) {
  test::Bytes block;
  block.raw("SFMB").zeros(4).le(68, 2).le(14, 1).zeros(9).le(pba, 8).zeros(8);
  block.le(id, 4).zeros(8).le(1, 2).zeros(2).le(2, 4).le(entries.size(), 4);
  for (const unsigned int entry : entries) block.le(entry, 4);
  test::seal_block(block.zeros(68 - block.data.size()).data, 0);
  return block.data;
}

// An address beyond 32 bits has no place in the array, nor has the oldest one when it is full.
TEST_F(Directory_Storage, FilemarkBytes) {
  Storage_Channel channel(pieces_, 68, nullptr);
  ASSERT_TRUE(channel.open(piece, for_writing, 0));
  for (unsigned long long pba : {1ULL, 0x01020304ULL, 0x0102030405ULL, 7ULL, 8ULL}) {
    EXPECT_EQ(channel.writer()->write_filemark(pba), 68U);
  }
  ASSERT_TRUE(finish(channel));
  EXPECT_EQ(read_file(dir_ / piece), filemark(1, 1, {}) + filemark(0x01020304, 2, {1}) +
                                         filemark(0x0102030405, 3, {0x01020304, 1}) +
                                         filemark(7, 4, {0x01020304, 1}) +
                                         filemark(8, 5, {7, 0x01020304}));
  ASSERT_TRUE(channel.open("demo.2.0.mtf", for_writing, 0));
  channel.writer()->write_filemark(9);
  ASSERT_TRUE(finish(channel));
  EXPECT_EQ(read_file(dir_ / "demo.2.0.mtf"), filemark(9, 1, {}));
  for (unsigned int size : {0U, 56U, 62U, 65536U}) {
    Storage_Channel none(pieces_, size, nullptr);
    ASSERT_TRUE(none.open("demo.3.0.mtf", for_writing, 0));
    EXPECT_EQ(none.writer()->write_filemark(0), MTF::IWriter::failed);
    EXPECT_EQ(none.writer()->err_msg(), "demo.3.0.mtf: Invalid argument");
    EXPECT_FALSE(none.close());
  }
}

TEST_F(Directory_Storage, APieceThatHasItsNameIsWhole) {
  {
    Storage_Channel channel(pieces_, 4096, nullptr);
    ASSERT_TRUE(channel.open(piece, for_writing, 0));
    EXPECT_FALSE(channel.open("demo.1.0.cat", for_writing, 0)) << "two pieces at once";
  }
  EXPECT_FALSE(there("demo.1.0.mtf.part"));
  Storage_Channel channel(pieces_, 4096, nullptr);
  ASSERT_TRUE(channel.open(piece, for_writing, 0));
  const std::string large(agent::Piece_Writer::direct_size, 'x');
  channel.writer()->write("abc", 3);
  channel.writer()->write(large.data(), large.size());
  EXPECT_EQ(channel.writer()->size(), 3 + large.size());
  ASSERT_TRUE(channel.close());
  EXPECT_TRUE(channel.close()) << "nothing is open";
  EXPECT_FALSE(there(piece)) << "the job may still fail";
  ASSERT_TRUE(finish(channel));
  EXPECT_FALSE(channel.open(piece, for_writing, 0));
  EXPECT_EQ(channel.err_msg(), "demo.1.0.mtf: File exists");
  EXPECT_EQ(read_file(dir_ / piece), "abc" + large);
  write_file(dir_ / "demo.1.0.mtf.part", "x");
  write_file(dir_ / "demo.1.1.mtf.part", "x");
  EXPECT_TRUE(channel.remove(piece));
  EXPECT_TRUE(channel.remove("demo.1.1.mtf"));
  EXPECT_TRUE(std::filesystem::is_empty(dir_.path()));
  EXPECT_FALSE(channel.remove(piece));
  EXPECT_EQ(channel.err_msg(), "demo.1.0.mtf: No such file or directory");
  ASSERT_TRUE(channel.open(piece, for_writing, 0));
  write_file(dir_ / piece, "another's");
  EXPECT_FALSE(finish(channel));
  EXPECT_EQ(read_file(dir_ / piece), "another's");
  write_file(dir_ / "demo.1.1.mtf.part", "x");
  std::filesystem::create_directory(dir_ / "demo.1.1.mtf");
  EXPECT_FALSE(channel.remove("demo.1.1.mtf"));
}

TEST_F(Directory_Storage, NamesLeadNowhereElse) {
  test_support::Temp_Dir other;
  write_file(other / "target", "safe");
  ASSERT_EQ(::mkfifo((dir_ / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(storage_.open("pipe", error_), nullptr);
  for (const char* name : {"link.part", "link"}) {
    ASSERT_EQ(::symlink((other / "target").c_str(), (dir_ / name).c_str()), 0);
    Storage_Channel channel(pieces_, 4096, nullptr);
    EXPECT_FALSE(channel.open("link", for_writing, 0)) << name;
    EXPECT_FALSE(channel.open("link", for_reading, 0)) << name;
  }
  const std::string up = "../" + other.path().substr(other.path().rfind('/') + 1) + "/target";
  for (const char* name : {up.c_str(), "", ".", "..", "a/b", static_cast<const char*>(nullptr)}) {
    Storage_Channel channel(pieces_, 4096, nullptr);
    EXPECT_FALSE(channel.open(name, for_writing, 0));
    EXPECT_FALSE(channel.open(name, for_reading, 0));
    EXPECT_FALSE(channel.remove(name));
    EXPECT_EQ(storage_.open(name == nullptr ? "" : name, error_), nullptr);
  }
  EXPECT_EQ(read_file(other / "target"), "safe");
}

}  // namespace
