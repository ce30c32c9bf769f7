// Storages that fail, at every call of a job of two channels.
#include <gtest/gtest.h>

#include "tests/support/chain.h"
#include "tests/support/media_layout.h"

namespace {

using namespace MTF;
using Texts = std::vector<std::string>;
using test_support::Call;
using test_support::Chain;
using test_support::channel_text;
using test_support::Fault;
using test_support::Kind;
using test_support::Op;
using test_support::Test_Job;
using test_support::writer_text;

// What a job must tell of a failure.
struct Told {
  bool done = false;
  bool started = true;  // its tasks
  unsigned code = 0;
  std::string text;
  int event = 0;           // with the name of the piece, or of the task that couldn't be made
  const char* check = "";  // that a line of an assertion names
};

bool is_catalog(const std::string& piece) {
  return piece.size() > 4 && piece.substr(piece.size() - 4) == ".cat";
}

// Where the data set of a media ends and the end of the media begins.
std::size_t end_of_sets(const std::string& media) {
  for (const auto& item : test_support::media_items(media)) {
    if (item.id == "EOTM") return item.at;
  }
  return 0;
}

// The rules of what a failing call does, by what is called and where; `media` is the whole one.
Told rule(const Call& call, const std::string& media) {
  Told told;
  const bool for_job = !call.piece.empty() && !call.reads;
  switch (call.op) {
    case Op::create:
      told.started = false;
      told.check = "channel.get() is NULL";
      return told;
    case Op::open:
      if (!for_job) break;
      told.code = 6;
      told.text = channel_text;
      told.event = event_piece_open_failed;
      return told;
    case Op::writer:
      told.check = "writer is NULL";
      return told;
    case Op::reader:
      told.started = false;
      told.check = "reader is NULL";
      return told;
    case Op::close:
    case Op::remove:
      // Nobody asks how the clean-up went.
      told.done = call.op == Op::remove || call.piece.empty();
      if (told.done) return told;
      if (!for_job) break;
      told.code = 9;
      told.text = writer_text;
      told.event = event_piece_write_failed;
      return told;
    case Op::read:
      break;
    case Op::write:
    case Op::flush:
    case Op::filemark:
      told.code = 9;
      told.text = writer_text;
      // The event is for what stands around the data sets. Filemarks take no bytes here: the one
      // that ends the data set stands where the end of the media begins.
      if (is_catalog(call.piece) ||
          call.place >= end_of_sets(media) + (call.op == Op::filemark ? 1 : 0)) {
        told.event = event_piece_write_failed;
      }
      return told;
  }
  // What is left has to do with the earlier catalog.
  told.started = false;
  told.event = event_task_made;
  return told;
}

// The tasks are made for a channel 1 where there is one; its pieces have the number 0.
std::string event_text(const Told& told, const Call& call, unsigned channels) {
  const unsigned number = told.started && channels == 1 ? 0 : call.channel;
  return "{\"channel\":" + std::to_string(number) + ",\"message\":\"" + channel_text +
         "\",\"name\":\"" + (told.started ? call.piece : "incremental_source_producer") +
         "\",\"result\":false}";
}

Texts failed_makings(const Test_Job& job) {
  Texts texts;
  for (const std::string& text : job.events.texts(event_task_made)) {
    if (text.find("\"result\":false") != std::string::npos) texts.push_back(text);
  }
  return texts;
}

class Storage_Faults : public Chain, public testing::WithParamInterface<Kind> {
 protected:
  void expect_rich_source() const;
  // All calls of the job when nothing fails, up to the last piece that is taken back.
  std::vector<Call> all_calls();
  std::string faults_of(const Test_Job& job) const {
    return test_support::faults_of(job.storage.pieces, 2,
                                   test_support::channel_numbers(GetParam().channels));
  }
  void expect_fault(const Call& call, bool wholly);
  void expect_told(const Test_Job& job, const Told& told, const Call& call) const;
  std::string whole_media(const Call& call) const {
    const auto found = whole_.find(call.piece);
    return found != whole_.end() && !is_catalog(call.piece) ? found->second : std::string();
  }

  std::map<std::string, std::string> whole_;  // the pieces of a job without a fault
};

// Each channel has content to write, and between them they write all that a job may.
void Storage_Faults::expect_rich_source() const {
  std::string orders;
  for (const auto& [name, bytes] : whole_) {
    if (is_catalog(name) || name.compare(0, 4, "j.2.") != 0) continue;
    const std::string order = test_support::media_order(bytes);
    EXPECT_NE(order.find("STAN CSUM"), order.npos) << name << ": " << order;
    orders += order;
  }
  for (const char* id : {"PDAT", "PNAM", "CFIL"}) EXPECT_NE(orders.find(id), orders.npos) << id;
}

std::vector<Call> Storage_Faults::all_calls() {
  Test_Job job;
  EXPECT_TRUE(run(job, GetParam()));
  EXPECT_EQ(job.backup.err_code(), 0U);
  EXPECT_EQ(faults_of(job), "");
  whole_ = job.storage.pieces;
  expect_rich_source();
  expect_taken_back(job);
  return job.storage.log;
}

void Storage_Faults::expect_told(const Test_Job& job, const Told& told, const Call& call) const {
  const unsigned channels = GetParam().channels;
  EXPECT_EQ(job.backup.err_code(), told.code);
  EXPECT_EQ(job.backup.err_msg(), told.text);
  EXPECT_EQ(job.backup.seq(), 2U);
  for (int code : {event_piece_open_failed, event_piece_write_failed}) {
    EXPECT_EQ(job.events.texts(code),
              code == told.event ? Texts{event_text(told, call, channels)} : Texts{});
  }
  EXPECT_EQ(failed_makings(job),
            told.event == event_task_made ? Texts{event_text(told, call, channels)} : Texts{});
  EXPECT_TRUE(*told.check == '\0' || job.log->asserted(told.check)) << told.check;
  EXPECT_EQ(job.events.all(event_task_started).size(), told.started ? std::min(2U, channels) : 0U);
  EXPECT_EQ(job.events.all(event_summary).size(), told.done ? 1U : 0U);
  if (told.done) return;
  EXPECT_EQ(job.backup.summary().vol_count() + job.backup.summary().file_count(), 0U);
  EXPECT_EQ(job.events.is_canceling(), told.started);
  const long failures = told.started ? 1 : 0;
  EXPECT_EQ(job.log->count("128 Failed to write media\n"), failures);
  EXPECT_EQ(job.log->count("128 Failed to execute backup task, last_error=-1\n"), failures);
  EXPECT_EQ(job.storage.late_calls(), 0U);
}

void Storage_Faults::expect_fault(const Call& call, bool wholly) {
  std::ostringstream where;
  where << GetParam() << ", call " << static_cast<int>(call.op) << ' ' << call.at << " of channel "
        << call.channel << (wholly ? " wholly, " : ", ") << call.piece << " at " << call.place;
  SCOPED_TRACE(where.str());
  const Told told = rule(call, whole_media(call));
  Test_Job job(Fault{call.op, call.at, call.channel, wholly});
  EXPECT_EQ(run(job, GetParam()), told.done);
  expect_told(job, told, call);
  const std::string faults = told.done ? faults_of(job) : "";
  EXPECT_EQ(faults, "");
  const bool kept = call.op == Op::remove;
  expect_taken_back(job, kept ? Texts{call.piece} : Texts{});
}

TEST_P(Storage_Faults, EveryCallOfEveryChannel) {
  start(GetParam());
  const std::vector<Call> calls = all_calls();
  std::map<Op, int> seen;
  for (const Call& call : calls) {
    // The last channel is made to take the job back, which nobody hears of.
    if (call.op == Op::create && call.at > GetParam().channels) continue;
    ++seen[call.op];
    expect_fault(call, false);
    if (call.op == Op::write) expect_fault(call, true);
  }
  const std::size_t kinds = GetParam().incremental ? 10 : 8;
  EXPECT_EQ(seen.size(), kinds);
}

INSTANTIATE_TEST_SUITE_P(Kinds, Storage_Faults,
                         testing::Values(Kind{1, false, false}, Kind{1, true, true},
                                         Kind{2, false, false}, Kind{2, true, false},
                                         Kind{2, false, true}, Kind{2, true, true}));

}  // namespace
