#include "agent/directory_storage.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include "tests/support/temp_dir.h"

namespace {

using agent::Directory_Channel;
using agent::Piece_Writer;
using test_support::read_file;
using test_support::Temp_Dir;

constexpr int for_reading = MTF::Channel::mode_read;
constexpr int for_writing = MTF::Channel::mode_write;
constexpr const char* piece = "demo.1.0.mtf";

class Quiet_Events final : public MTF::Event_Handler {
  int handle_event(int, const json_spirit::Value&) override { return 0; }
};

class Directory_Storage : public testing::Test {
 protected:
  Directory_Storage() { EXPECT_TRUE(directory_.open(dir_.path(), false)); }

  bool there(const std::string& name) const { return ::access((dir_ / name).c_str(), F_OK) == 0; }

  // Ends a job of one piece.
  bool finish(Directory_Channel& channel) {
    std::string error;
    return channel.close() && pieces_.name_all(error);
  }

  Temp_Dir dir_;
  platform::Storage_Directory directory_;
  agent::Piece_Namer pieces_{directory_};
  Quiet_Events events_;
};

// A soft filemark block written by hand, of `size` bytes.
std::string filemark(std::size_t size, const std::string& pba, const std::string& id,
                     const std::string& entries, const std::string& used,
                     const std::string& array) {
  const auto low = static_cast<char>(size & 0xFF), high = static_cast<char>(size >> 8);
  std::string block = std::string("SFMB") + std::string(4, '\0') + low + high + '\x0E' + '\0' +
                      std::string(8, '\0') + pba + std::string(8, '\0') + id +
                      std::string(8, '\0') + '\x01' + '\0';
  EXPECT_EQ(block.size(), 50U);
  char sum[2] = {0, 0};
  for (std::size_t i = 0; i < block.size(); ++i)
    sum[i % 2] = static_cast<char>(sum[i % 2] ^ block[i]);
  block += std::string(sum, 2) + entries + used + array;
  return block + std::string(size - block.size(), '\0');
}

std::string bytes(std::initializer_list<int> values) {
  std::string out;
  for (int value : values) out += static_cast<char>(value);
  return out;
}

TEST_F(Directory_Storage, FilemarkBytes) {
  Directory_Channel channel(pieces_, 4096, nullptr);
  ASSERT_TRUE(channel.open(piece, for_writing, 0));
  for (unsigned long long pba : {1ULL, 0x01020304ULL, 0x0102030405ULL, 0x07ULL}) {
    EXPECT_EQ(channel.writer()->write_filemark(pba), 4096U);
  }
  EXPECT_EQ(channel.writer()->size(), 4U * 4096);
  ASSERT_TRUE(finish(channel));
  const std::string entries = bytes({0xF1, 0x03, 0, 0});  // (4096 - 60) / 4 = 1009
  const std::string expected =
      filemark(4096, bytes({1, 0, 0, 0, 0, 0, 0, 0}), bytes({1, 0, 0, 0}), entries,
               bytes({0, 0, 0, 0}), "") +
      filemark(4096, bytes({4, 3, 2, 1, 0, 0, 0, 0}), bytes({2, 0, 0, 0}), entries,
               bytes({1, 0, 0, 0}), bytes({1, 0, 0, 0})) +
      filemark(4096, bytes({5, 4, 3, 2, 1, 0, 0, 0}), bytes({3, 0, 0, 0}), entries,
               bytes({2, 0, 0, 0}), bytes({4, 3, 2, 1, 1, 0, 0, 0})) +
      // An address beyond 32 bits has no place in the array.
      filemark(4096, bytes({7, 0, 0, 0, 0, 0, 0, 0}), bytes({4, 0, 0, 0}), entries,
               bytes({2, 0, 0, 0}), bytes({4, 3, 2, 1, 1, 0, 0, 0}));
  EXPECT_TRUE(read_file(dir_ / piece) == expected);
}

TEST_F(Directory_Storage, FilemarksThatFillTheArrayAndANewPiece) {
  Directory_Channel channel(pieces_, 68, nullptr);  // room for two entries
  ASSERT_TRUE(channel.open(piece, for_writing, 0));
  for (unsigned long long pba : {1ULL, 2ULL, 3ULL, 4ULL}) channel.writer()->write_filemark(pba);
  ASSERT_TRUE(finish(channel));
  EXPECT_EQ(read_file(dir_ / piece).substr(3 * 68),
            filemark(68, bytes({4, 0, 0, 0, 0, 0, 0, 0}), bytes({4, 0, 0, 0}), bytes({2, 0, 0, 0}),
                     bytes({2, 0, 0, 0}), bytes({3, 0, 0, 0, 2, 0, 0, 0})));
  ASSERT_TRUE(channel.open("demo.2.0.mtf", for_writing, 0));
  channel.writer()->write_filemark(9);
  ASSERT_TRUE(finish(channel));
  EXPECT_EQ(read_file(dir_ / "demo.2.0.mtf"),
            filemark(68, bytes({9, 0, 0, 0, 0, 0, 0, 0}), bytes({1, 0, 0, 0}), bytes({2, 0, 0, 0}),
                     bytes({0, 0, 0, 0}), ""));
}

TEST_F(Directory_Storage, FilemarkOfABlockSizeThatCannotHoldOne) {
  for (unsigned int size : {0U, 56U, 62U, 65536U}) {
    Directory_Channel channel(pieces_, size, nullptr);
    ASSERT_TRUE(channel.open(piece, for_writing, 0));
    EXPECT_EQ(channel.writer()->write_filemark(0), MTF::IWriter::failed);
    EXPECT_EQ(channel.writer()->err_msg(), "demo.1.0.mtf.part: Invalid argument");
    EXPECT_FALSE(channel.close());
    EXPECT_FALSE(there(piece));
  }
}

TEST_F(Directory_Storage, WritesOfEverySizeArriveInOrder) {
  const std::size_t block = Piece_Writer::block_size, direct = Piece_Writer::direct_size;
  const std::size_t sizes[] = {0, 1, direct - 1, direct, direct + 1, 3, block - 2,
                               1, 1, block + 1,  60000,  60000,      0, 7};
  Directory_Channel channel(pieces_, 4096, nullptr);
  ASSERT_TRUE(channel.open(piece, for_writing, 0));
  MTF::IWriter* writer = channel.writer();
  std::string expected;
  for (int round = 0; round < 40; ++round) {
    for (std::size_t size : sizes) {
      std::string data(size, '\0');
      for (std::size_t i = 0; i < size; ++i)
        data[i] = static_cast<char>((expected.size() + i) * 31);
      ASSERT_EQ(writer->write(data.data(), size), size);
      expected += data;
      // The writer took the bytes: the caller may do with them what it likes.
      std::memset(&data[0], '!', size);
      ASSERT_EQ(writer->size(), expected.size());
    }
  }
  ASSERT_TRUE(finish(channel));
  EXPECT_EQ(writer->size(), expected.size());
  EXPECT_TRUE(read_file(dir_ / piece) == expected);
}

TEST_F(Directory_Storage, APieceThatHasItsNameIsWhole) {
  Directory_Channel channel(pieces_, 4096, nullptr);
  ASSERT_TRUE(channel.open(piece, for_writing, 0));
  EXPECT_FALSE(channel.open("demo.1.0.cat", for_writing, 0)) << "two pieces at once";
  EXPECT_EQ(channel.reader(), nullptr);
  channel.writer()->write("abc", 3);
  EXPECT_FALSE(there(piece));
  EXPECT_TRUE(there("demo.1.0.mtf.part"));
  struct stat record;
  ASSERT_EQ(::stat((dir_ / "demo.1.0.mtf.part").c_str(), &record), 0);
  EXPECT_EQ(record.st_mode & 07777, 0600U);
  ASSERT_TRUE(channel.close());
  EXPECT_TRUE(channel.close()) << "nothing is open";
  EXPECT_FALSE(there(piece)) << "the job may still fail";
  std::string error;
  ASSERT_TRUE(pieces_.name_all(error)) << error;
  EXPECT_EQ(read_file(dir_ / piece), "abc");
  EXPECT_FALSE(there("demo.1.0.mtf.part"));

  EXPECT_FALSE(channel.open(piece, for_writing, 0));
  EXPECT_EQ(channel.err_msg(), "demo.1.0.mtf: File exists");
  EXPECT_EQ(read_file(dir_ / piece), "abc");

  ASSERT_TRUE(channel.open(piece, for_reading, 0));
  char data[8];
  EXPECT_EQ(channel.reader()->read(data, sizeof data), 3);
  EXPECT_EQ(channel.reader()->read(data, sizeof data), 0);
  EXPECT_EQ(channel.writer(), nullptr);
  EXPECT_TRUE(channel.close());
}

TEST_F(Directory_Storage, WhatIsNotCompletedIsDropped) {
  const auto begin = [&](Directory_Channel& channel) {
    ASSERT_TRUE(channel.open(piece, for_writing, 0));
    channel.writer()->write("abc", 3);
  };
  {
    Directory_Channel channel(pieces_, 4096, &events_);
    begin(channel);
    channel.disconnect();
    EXPECT_FALSE(there("demo.1.0.mtf.part"));
    begin(channel);
  }
  EXPECT_FALSE(there("demo.1.0.mtf.part"));
  Directory_Channel channel(pieces_, 4096, &events_);
  begin(channel);
  events_.set_canceling();
  EXPECT_TRUE(channel.close());
  EXPECT_FALSE(there(piece));
  EXPECT_FALSE(there("demo.1.0.mtf.part"));
}

TEST_F(Directory_Storage, RemoveTakesThePieceAndWhatWasBegunOfIt) {
  Directory_Channel channel(pieces_, 4096, nullptr);
  test_support::write_file(dir_ / piece, "x");
  test_support::write_file(dir_ / "demo.1.0.mtf.part", "x");
  test_support::write_file(dir_ / "demo.1.1.mtf.part", "x");
  EXPECT_TRUE(channel.remove(piece));
  EXPECT_TRUE(channel.remove("demo.1.1.mtf"));
  std::vector<std::string> names;
  ASSERT_TRUE(directory_.names(names));
  EXPECT_TRUE(names.empty());
  EXPECT_FALSE(channel.remove(piece));
  EXPECT_EQ(channel.err_msg(), "demo.1.0.mtf: No such file or directory");
}

TEST_F(Directory_Storage, NamesLeadNowhereElse) {
  Temp_Dir other;
  test_support::write_file(other / "target", "safe");
  for (const char* name : {"link.part", "link"}) {
    ASSERT_EQ(::symlink((other / "target").c_str(), (dir_ / name).c_str()), 0);
    Directory_Channel channel(pieces_, 4096, nullptr);
    EXPECT_FALSE(channel.open("link", for_writing, 0)) << name;
    EXPECT_FALSE(channel.open("link", for_reading, 0)) << name;
  }
  const std::string up = "../" + other.path().substr(other.path().rfind('/') + 1) + "/target";
  for (const char* name : {up.c_str(), "", ".", "..", "a/b", static_cast<const char*>(nullptr)}) {
    Directory_Channel channel(pieces_, 4096, nullptr);
    EXPECT_FALSE(channel.open(name, for_writing, 0));
    EXPECT_FALSE(channel.open(name, for_reading, 0));
    EXPECT_FALSE(channel.remove(name));
  }
  EXPECT_EQ(read_file(other / "target"), "safe");
  EXPECT_FALSE(directory_.exists("a"));
}

// Writes on a storage that takes 2 MiB of a file, like a full disk. Returns 0 if all is as it
// should be, else the step that wasn't.
int write_beyond_the_limit(agent::Piece_Namer& pieces, bool small) {
  ::signal(SIGXFSZ, SIG_IGN);
  const rlimit limit = {2 << 20, 2 << 20};
  if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return 1;
  Directory_Channel channel(pieces, 4096, nullptr);
  if (!channel.open(piece, for_writing, 0)) return 2;
  MTF::IWriter* writer = channel.writer();
  const std::string data(small ? 1000 : 300000, 'x');
  unsigned long long taken = 0;
  for (int i = 0; i < 5000 && taken == static_cast<unsigned long long>(i) * data.size(); ++i) {
    taken += writer->write(data.data(), data.size());
  }
  if (taken > 3 << 20 || writer->size() != taken) return 3;
  if (writer->flush() || writer->write("x", 1) != 0) return 4;
  if (writer->write_filemark(1) != MTF::IWriter::failed) return 5;
  if (writer->err_msg() != "demo.1.0.mtf.part: File too large") return 6;
  if (channel.close() || channel.err_msg() != writer->err_msg()) return 7;
  return pieces.directory().exists(piece) || pieces.directory().exists("demo.1.0.mtf.part") ? 8 : 0;
}

// What was gathered fails as late as at close().
int close_beyond_the_limit(agent::Piece_Namer& pieces) {
  ::signal(SIGXFSZ, SIG_IGN);
  const rlimit limit = {500, 500};
  if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return 1;
  Directory_Channel channel(pieces, 4096, nullptr);
  const std::string data(1000, 'x');
  if (!channel.open(piece, for_writing, 0)) return 2;
  if (channel.writer()->write(data.data(), data.size()) != data.size()) return 3;
  if (channel.close() || channel.err_msg() != "demo.1.0.mtf.part: File too large") return 4;
  return pieces.directory().exists(piece) || pieces.directory().exists("demo.1.0.mtf.part") ? 5 : 0;
}

template <class Step>
int in_child(Step step) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(step());
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(Directory_Storage, FullDisk) {
  EXPECT_EQ(in_child([&] { return write_beyond_the_limit(pieces_, true); }), 0);
  EXPECT_EQ(in_child([&] { return write_beyond_the_limit(pieces_, false); }), 0);
  EXPECT_EQ(in_child([&] { return close_beyond_the_limit(pieces_); }), 0);
}

}  // namespace
