#include "mtf/writer/nt_content_writer.h"

#include <gtest/gtest.h>

#include "mtf/writer/dir_blk_writer_win.h"
#include "tests/support/writer_parts.h"

namespace {

using test::Bytes;
using test::Media_Bytes;
using test::Script;

constexpr unsigned int io_device = 1117;

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
    EXPECT_EQ(parts.ctx.length, parts.writer.data.size());
  }
  return {result, parts.writer.data, content.corrupt_offset(), content.corrupt_attributes(),
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

TEST(NtContentWriter, EachRecordBecomesTheStreamOfItsKind) {
  for (const bool pre_read : {false, true}) {
    const Outcome outcome = write(each_kind(), pre_read);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.media, media_of(each_kind()));
    EXPECT_EQ(outcome.streams, each_kind().size());
    EXPECT_EQ(outcome.corrupt_attributes, 0u);
  }
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
  for (const int error : {0, static_cast<int>(io_device)}) {
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
}

TEST(NtContentWriter, ErrorNumbersBecomeCorruptAttributes) {
  const std::string bytes = bytes_of({{1, 0, "", "content", "STAN", 0}});
  const struct {
    int error;
    unsigned int attributes;
  } cases[] = {{30, 0x20000}, {1117, 0x20000}, {33, 0x80000}, {5, 0x10000}, {31, 0x10000}};
  for (const auto& c : cases) {
    for (const std::size_t end : {std::size_t{0}, bytes.size() - 3}) {
      test::Writer_Parts parts;
      EXPECT_EQ(write(parts, bytes, end, c.error).corrupt_attributes, c.attributes) << c.error;
    }
  }
}

TEST(NtContentWriter, AMediaThatIsFullAtAnyByteFailsTheWrite) {
  const std::string bytes = bytes_of(each_kind());
  const std::size_t whole = media_of(each_kind()).size();
  for (std::size_t room = 0; room < whole; ++room) {
    test::Writer_Parts parts;
    parts.writer.room = room;
    EXPECT_EQ(write(parts, bytes, bytes.size(), 0).result, -1) << room;
  }
}

TEST(NtContentWriter, AnUnknownRecordStopsBehindTheStreamsBeforeIt) {
  for (const unsigned int id : {0u, 5u, 10u, 0x10001u}) {
    const std::vector<Record> before = {{3, 0, "", "security", "NACL", 2}};
    std::vector<Record> all = before;
    all.push_back({id, 0, "", "what", "", 0});
    all.push_back({1, 0, "", "never reached", "STAN", 0});
    for (const bool pre_read : {false, true}) {
      const Outcome outcome = write(all, pre_read);
      EXPECT_EQ(outcome.result, 4) << id;
      EXPECT_EQ(outcome.media, media_of(before)) << id;
      EXPECT_EQ(outcome.streams, 1u);
    }
  }
}

TEST(NtContentWriter, ASparseRecordWithoutRoomForItsOffsetGivesNoStream) {
  for (std::size_t size = 0; size < 8; ++size) {
    const Outcome outcome = write({{9, 0, "", std::string(size, 'x'), "", 0}});
    EXPECT_EQ(outcome.result, 2);
    EXPECT_EQ(outcome.media, "");
    EXPECT_EQ(outcome.corrupt_attributes, 0x10000u);
  }
}

TEST(NtContentWriter, ANameThatNoBufferHoldsFailsTheWrite) {
  test::Writer_Parts parts;
  const std::string head = Bytes().le(4, 4).le(0, 4).le(0, 8).le(0xFFFFFFFF, 4).data;
  EXPECT_EQ(write(parts, head, head.size(), 0).result, -1);
}

// Random bytes don't shrink, so each frame holds them as they came.
TEST(NtContentWriter, ContentAloneIsCompressed) {
  const std::string data("\x9f\x02\xd1\x5c\xe8\x77\x31\xaa\x0b\xc4", 10);
  const std::vector<Record> records = {{3, 0, "", data, "NACL", 2},
                                       {4, 0, "", data, "ADAT", 0},
                                       {1, 0, "", data, "STAN", 0},
                                       {9, 0, "", offset(40) + data, "SPAR", 0}};
  const std::string bytes = bytes_of(records);
  test::Writer_Parts parts;
  parts.option.compression_method = 1;
  EXPECT_EQ(write(parts, bytes, bytes.size(), 0).result, 0);
  Media_Bytes media;
  media.stream("NACL", data, 2);
  media.stream("ADAT", payload(records[1]));
  media.frames("STAN", {{data, data}}, 1, data.size());
  media.frames("SPAR", {{offset(40), offset(40)}, {data, data}}, 1, 8 + data.size());
  EXPECT_EQ(parts.writer.data, media.data);
}

TEST(NtContentWriter, DataAndHolesCountAsProgressOnce) {
  const struct {
    std::vector<Record> records;
    unsigned long long progress;
  } cases[] = {
      {{{1, 0, "", "12345", "STAN", 0}}, 5},
      {{{1, 0, "", "", "STAN", 8},
        {9, 0, "", offset(100) + "12345", "SPAR", 0},
        {9, 0, "", offset(105) + "6", "SPAR", 0},
        {9, 0, "", offset(1000), "SPAR", 0}},
       1000},
      // An alternate stream begins at 0 again, and properties count nothing.
      {{{1, 0, "", "", "STAN", 8},
        {9, 0, "", offset(50), "SPAR", 0},
        {4, 0, "", "", "ADAT", 0},
        {9, 0, "", offset(20), "SPAR", 0},
        {3, 0, "", "security", "NACL", 2}},
       70},
      // An overlap is stored as it came; what comes behind counts from its start.
      {{{9, 0, "", offset(50), "SPAR", 0},
        {9, 0, "", offset(10), "SPAR", 0},
        {9, 0, "", offset(20), "SPAR", 0}},
       60},
  };
  for (const auto& c : cases) {
    test::Writer_Parts parts;
    const std::string bytes = bytes_of(c.records);
    EXPECT_EQ(write(parts, bytes, bytes.size(), 0).result, 0);
    EXPECT_EQ(parts.writer.data, media_of(c.records));
    EXPECT_EQ(parts.events->progress().done_size, c.progress);
  }
}

TEST(NtContentWriter, ACancelShowsAtTheNextContent) {
  const struct {
    Record record;
    int result;
  } cases[] = {{{1, 0, "", "content", "STAN", 0}, -1},
               {{9, 0, "", offset(0) + "range", "SPAR", 0}, -1},
               {{3, 0, "", "security", "NACL", 2}, 0}};
  for (const auto& c : cases) {
    test::Writer_Parts parts;
    parts.events->set_canceling();
    const std::string bytes = bytes_of(c.record);
    EXPECT_EQ(write(parts, bytes, bytes.size(), 0).result, c.result) << c.record.stream;
  }
}

TEST(NtContentWriter, PreReadingLeavesNoStreamOfARecordThatFails) {
  const std::vector<Record> records = {{3, 0, "", "security", "NACL", 2},
                                       {2, 0, "", "attributes", "NTEA", 0}};
  const std::string bytes = bytes_of(records);
  for (const int error : {0, static_cast<int>(io_device)}) {
    test::Writer_Parts parts;
    const Outcome outcome = write(parts, bytes, bytes.size() - 4, error, true);
    EXPECT_EQ(outcome.result, 2);
    EXPECT_EQ(outcome.corrupt_attributes, 0u);
    EXPECT_EQ(outcome.media, media_of({records[0]}));
  }
  // What can't be written although all of it was read ends the job.
  EXPECT_EQ(write({{9, 0, "", "short", "", 0}}, true).result, -1);
}

}  // namespace
