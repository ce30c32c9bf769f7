// The records of a file as streams of a media, and the blocks in front of them.
#include "mtf/writer/nt_content_writer.h"

#include <gtest/gtest.h>

#include <random>

#include "mtf/writer/dir_blk_writer_win.h"
#include "mtf/writer/file_blk_writer_win.h"
#include "mtf/writer/queue_blocks.h"
#include "platform/native_path.h"
#include "services/compression.h"
#include "tests/support/writer_parts.h"

namespace {

using test::Bytes;
using test::Media_Bytes;
using test::Script;

constexpr int io_device = 1117;

struct Record {
  unsigned int id;
  unsigned int attributes;
  std::string name;
  std::string data;
  std::string stream;  // what it becomes; empty for nothing
  unsigned int file_attributes;
};

std::string bytes_of(const Record& record) {
  Bytes out;
  out.le(record.id, 4).le(record.attributes, 4).le(record.data.size(), 8);
  return out.le(record.name.size(), 4).raw(record.name).raw(record.data).data;
}

std::string bytes_of(const std::vector<Record>& records) {
  std::string out;
  for (const Record& record : records) out += bytes_of(record);
  return out;
}

std::string payload(const Record& record) {
  if (record.id != 4) return record.data;
  return Bytes().le(record.name.size(), 4).raw(record.name).raw(record.data).data;
}

std::string offset(unsigned long long value) {
  return Bytes().le(value, 8).data;
}

std::vector<Record> each_kind() {
  const std::string name("n\0m\0", 4);
  return {
      {3, 0, "", "security", "NACL", 2},
      {2, 0, "", "attribute", "NTEA", 0},
      {1, 1, "", "content of the file", "STAN", 1},
      {4, 2, name, "alternate", "ADAT", 2},
      {9, 0, "", offset(100) + "range", "SPAR", 0},
      {6, 3, "", "property", "NTPR", 3},
      {7, 4, "", "0123456789abcdef", "NTOI", 0},
      {8, 8, "", "reparse", "NTRP", 0},
      {1, 8, "", "", "STAN", 8},
      {9, 0, "", offset(7), "SPAR", 0},
  };
}

struct Outcome {
  int result;
  std::string media;
  unsigned long long corrupt_offset;
  unsigned int corrupt_attributes;
  unsigned int streams;
};

Outcome write(test::Writer_Parts& parts, const std::string& bytes, std::size_t end, int error,
              bool pre_read = false) {
  MTF::Buffer data(8);
  data.expand(16);
  MTF::NT_Content_Writer content(parts.event_handler);
  EXPECT_TRUE(content.init(&parts.option, &parts.ctx, parts.buffer, &data, pre_read));
  MTF_FS::Backup_Reader reader(std::make_unique<Script>(bytes, end, error));
  reader.open(L"X:\\file");
  const int result = content.write(reader, parts.writer);
  if (result != -1) {
    EXPECT_EQ(parts.ctx.length, parts.writer.bytes.size());
  }
  return {result, parts.writer.bytes, content.corrupt_offset(), content.corrupt_attributes(),
          content.stream_count()};
}

Outcome write(const std::vector<Record>& records, bool pre_read = false) {
  test::Writer_Parts parts;
  const std::string bytes = bytes_of(records);
  return write(parts, bytes, bytes.size(), 0, pre_read);
}

std::string media_of(const std::vector<Record>& records) {
  Media_Bytes media;
  for (const Record& record : records) {
    media.stream(record.stream, payload(record), record.file_attributes);
  }
  return media.data;
}

// What a sequence must become when its source stops at byte `end`.
Outcome expected_at(const std::vector<Record>& records, std::size_t end, int error) {
  Media_Bytes media;
  Outcome out = {0, "", 0, 0, 0};
  const auto stop = [&](bool torn) {
    out.result = 2;
    out.corrupt_attributes = error != 0 && !torn ? 0x20000 : 0x10000;
    out.media = media.data;
    return out;
  };
  std::size_t at = 0;
  for (const Record& record : records) {
    if (end == at && error == 0) break;
    if (end < at + 20) return stop(end != at);
    at += 20;
    const std::size_t prefix = record.id == 9 ? 8 : record.name.size();
    const std::string whole = payload(record);
    std::string filled(whole.size(), '\0');
    if (end < at + prefix) {
      if (record.id != 9) {
        media.stream(record.stream, filled, record.file_attributes, 0x20, false);
      }
      return stop(end != at);
    }
    at += record.name.size();
    if (end < at + record.data.size()) {
      const std::size_t kept = whole.size() - record.data.size() + (end - at);
      filled.replace(0, kept, whole, 0, kept);
      media.stream(record.stream, filled, record.file_attributes, 0x20, false);
      out.corrupt_offset = kept;
      return stop(false);
    }
    at += record.data.size();
    media.stream(record.stream, whole, record.file_attributes);
    ++out.streams;
  }
  if (error != 0) return stop(false);
  out.media = media.data;
  return out;
}

TEST(NtContentWriter, AReadThatFailsOrEndsAtAnyByteClosesItsStreamOut) {
  const std::string bytes = bytes_of(each_kind());
  for (const int error : {0, io_device}) {
    for (std::size_t end = 0; end <= bytes.size(); ++end) {
      SCOPED_TRACE("byte " + std::to_string(end) + ", error " + std::to_string(error));
      test::Writer_Parts parts;
      const Outcome outcome = write(parts, bytes, end, error);
      const Outcome wanted = expected_at(each_kind(), end, error);
      EXPECT_EQ(outcome.result, wanted.result);
      EXPECT_EQ(outcome.media, wanted.media);
      EXPECT_EQ(outcome.corrupt_offset, wanted.corrupt_offset);
      EXPECT_EQ(outcome.corrupt_attributes, wanted.corrupt_attributes);
      EXPECT_EQ(outcome.streams, wanted.streams);
    }
  }
  EXPECT_EQ(write(each_kind(), true).media, media_of(each_kind()));
}

TEST(NtContentWriter, ASparseRecordWithoutRoomForItsOffsetGivesNoStream) {
  for (std::size_t size = 0; size < 8; ++size) {
    const Outcome outcome = write({{9, 0, "", std::string(size, 'x'), "", 0}});
    EXPECT_EQ(outcome.result, 2);
    EXPECT_EQ(outcome.media, "");
    EXPECT_EQ(outcome.corrupt_attributes, 0x10000u);
  }
}

// Random bytes don't shrink, so each frame holds them as they came; 16 make one. The numbers of
// the frames begin again at 0.
TEST(NtContentWriter, ContentAloneIsCompressed) {
  std::mt19937 random(1);
  std::string data(260 * 16 - 3, '\0');
  for (char& byte : data) byte = static_cast<char>(random());
  std::vector<test::Frame> frames;
  for (std::size_t at = 0; at < data.size(); at += 16) {
    frames.push_back({data.substr(at, 16), data.substr(at, 16)});
  }
  const std::vector<Record> records = {{3, 0, "", data, "NACL", 2},
                                       {4, 0, "", data, "ADAT", 0},
                                       {1, 0, "", data, "STAN", 0},
                                       {9, 0, "", offset(40) + data, "SPAR", 0}};
  for (const unsigned short method : {MTF::compression_lz4, MTF::compression_zstd}) {
    const std::string bytes = bytes_of(records);
    test::Writer_Parts parts;
    parts.option.compression_method = method;
    EXPECT_EQ(write(parts, bytes, bytes.size(), 0).result, 0);
    Media_Bytes media;
    media.stream("NACL", data, 2);
    media.stream("ADAT", payload(records[1]));
    media.frames("STAN", frames, method, data.size());
    std::vector<test::Frame> sparse = frames;
    sparse.insert(sparse.begin(), {offset(40), offset(40)});
    media.frames("SPAR", sparse, method, 8 + data.size());
    EXPECT_EQ(parts.writer.bytes, media.data);
  }
}

// What lies between two ranges counts as a hole; an alternate stream begins at 0 again.
TEST(NtContentWriter, DataAndHolesCountAsProgressOnce) {
  const Record alternate = {4, 0, "", "", "ADAT", 0}, security = {3, 0, "", "secure", "NACL", 2};
  const auto range = [](unsigned long long at, const std::string& data) {
    return Record{9, 0, "", offset(at) + data, "SPAR", 0};
  };
  const std::pair<std::vector<Record>, unsigned long long> cases[] = {
      {{{1, 0, "", "12345", "STAN", 0}}, 5},
      {{range(100, "12345"), range(105, "6"), range(1000, "")}, 1000},
      {{range(50, ""), alternate, range(20, ""), security}, 70},
      // An overlap is stored as it came; what comes behind counts from its start.
      {{range(50, ""), range(10, ""), range(20, "")}, 60},
  };
  for (const auto& [records, progress] : cases) {
    test::Writer_Parts parts;
    const std::string bytes = bytes_of(records);
    EXPECT_EQ(write(parts, bytes, bytes.size(), 0).result, 0);
    EXPECT_EQ(parts.writer.bytes, media_of(records));
    EXPECT_EQ(parts.events->progress().done_size, progress);
  }
}

TEST(NtContentWriter, PreReadingLeavesNoStreamOfARecordThatFails) {
  const std::vector<Record> records = {{3, 0, "", "security", "NACL", 2},
                                       {2, 0, "", "attributes", "NTEA", 0}};
  const std::string bytes = bytes_of(records);
  for (const int error : {0, io_device}) {
    test::Writer_Parts parts;
    const Outcome outcome = write(parts, bytes, bytes.size() - 4, error, true);
    EXPECT_EQ(outcome.result, 2);
    EXPECT_EQ(outcome.corrupt_attributes, 0u);
    EXPECT_EQ(outcome.media, media_of({records[0]}));
  }
  // What can't be written although all of it was read ends the job.
  EXPECT_EQ(write({{9, 0, "", "short", "", 0}}, true).result, -1);
}

// A flush goes once ahead of the data.
TEST(DataStream, Failures) {
  using test_support::Memory_Writer;
  using test_support::Op;
  test_support::Log_Lines log;
  const test_support::Capture capture(log);
  MTF::Ref_Ptr<MTF::Event_Handler> handler(new test_support::Events);
  MTF::Standard_Data_Stream stream(handler);
  MTF::Buffer data(8);
  data.expand(3);
  data.size(3);
  const auto write = [&](unsigned short method, Memory_Writer&& writer) {
    stream.reset_stream(6, method, 1);
    const bool written = stream.write_data(data, writer) && stream.write_data(data, writer);
    EXPECT_LE(writer.storage().calls(Op::flush), 1U);
    return written;
  };
  EXPECT_FALSE(write(0, Memory_Writer({Op::flush, 1})));
  EXPECT_EQ(log.count("128 Failed to flush before write 0x4E415453 stream data\n"), 1);
  for (unsigned n : {1U, 2U}) EXPECT_FALSE(write(1, Memory_Writer({Op::write, n})));
  EXPECT_EQ(log.count("128 Failed to write compress STAN stream\n"), 2);
  EXPECT_FALSE(write(0, Memory_Writer({Op::write, 2})));
  Memory_Writer writer;
  EXPECT_FALSE(stream.end_stream(writer));
  EXPECT_EQ(log.count("128 Invalid current size: 3, stream length: 6\n"), 1);
  EXPECT_TRUE(write(0, Memory_Writer()));
  handler->set_canceling();
  EXPECT_FALSE(write(0, Memory_Writer()));
}

// Frames of all kinds, short of the end of the stream: the rest is filled up.
TEST(DataStream, SeveralThreadsWriteWhatOneWrites) {
  using test_support::Memory_Writer;
  using test_support::Op;
  constexpr unsigned int frame_size = 0x10000;
  const MTF::Ref_Ptr<MTF::Event_Handler> handler(new test_support::Events);
  MTF::Standard_Data_Stream stream(handler);
  std::mt19937 random(1);
  MTF::Buffer data(8);
  data.expand(frame_size);
  std::vector<std::string> frames(20);
  for (std::string& frame : frames) {
    frame.resize(1 + random() % frame_size, 'r');
    std::generate_n(frame.begin(), random() % frame.size(),
                    [&] { return static_cast<char>(random()); });
  }
  const auto write = [&](int threads, Memory_Writer& writer) {
    MTF::Backup_Context ctx(12, 9);
    stream.set_compression_threads(threads);
    stream.reset_stream(22 * frame_size, MTF::compression_zstd, 1);
    for (const std::string& frame : frames) {
      data.copy(frame.data(), static_cast<unsigned int>(frame.size()));
      data.size(static_cast<unsigned int>(frame.size()));
      if (!stream.write_data(data, writer)) return false;
    }
    return fill_stream(ctx, stream, data, writer) && ctx.length == writer.bytes.size();
  };
  Memory_Writer one;
  ASSERT_TRUE(write(1, one));
  const unsigned int checksum = stream.checksum();
  for (const int threads : {2, 5}) {
    for (unsigned n = 1; n < 40; n += 7) {
      Memory_Writer failing({Op::write, n}), several;
      EXPECT_FALSE(write(threads, failing));
      EXPECT_TRUE(write(threads, several));
      EXPECT_EQ(several.bytes, one.bytes);
      EXPECT_EQ(stream.checksum(), checksum);
    }
  }
}

// Goes to the directory of the parts.
std::string enter(test::Writer_Parts& parts) {
  std::string system;
  EXPECT_TRUE(platform::system_path(parts.dir.path(), system));
  parts.ctx.cur_vol = "/";
  parts.ctx.cur_dir = system.substr(2) + '\\';
  return parts.ctx.cur_dir;
}

TEST(FileBlkWriterWin, AnUnknownRecordLeavesTheFileWithoutACorruptMark) {
  for (const unsigned int id : {0u, 5u, 10u, 0x10001u}) {
    test::Writer_Parts parts;
    enter(parts);
    test_support::write_file(parts.dir / "file", "whatever");
    const std::string records = bytes_of(
        {{3, 0, "", "security", "", 0}, {id, 0, "", "what", "", 0}, {1, 0, "", "more", "", 0}});
    MTF::File_Blk_Writer_Win writer(parts.event_handler,
                                    std::make_unique<Script>(records, records.size(), 0));
    const auto cat = MTF::make_room<MTF::Cat_File_Blk>("file");
    ASSERT_TRUE(cat->set(0, "file", 0, 0, 0, 0));
    EXPECT_EQ(parts.write_block(writer, *cat), 1);
    const std::string& media = parts.writer.bytes;
    EXPECT_NE(media.find("security"), std::string::npos);
    for (const char* gone : {"what", "more", "CFIL"}) EXPECT_EQ(media.find(gone), media.npos) << id;
    EXPECT_TRUE(parts.events->all(MTF::event_corrupt).empty());
  }
}

TEST(DirBlkWriterWin, DamagedOrUnknownRecordsLeaveTheDirectory) {
  const std::string records = bytes_of(
      {{3, 0, "", "security", "", 0}, {2, 0, "", "attribute", "", 0}, {5, 0, "", "link", "", 0}});
  for (const std::size_t end : {std::size_t{5}, std::size_t{20 + 8 + 25}, records.size()}) {
    test::Writer_Parts parts;
    const auto cat = MTF::make_separated_blk<MTF::Cat_Dir_Blk>(0, enter(parts));
    MTF::Dir_Blk_Writer_Win writer(parts.event_handler,
                                   std::make_unique<Script>(records, end, io_device));
    EXPECT_EQ(parts.write_block(writer, *cat), 0);
    const std::string& media = parts.writer.bytes;
    EXPECT_EQ(media.find("NACL") != std::string::npos, end > 28);
    EXPECT_EQ(media.find("NTEA") != std::string::npos, end == records.size());
    EXPECT_EQ(media.find("CFIL"), std::string::npos);
  }
}

}  // namespace
