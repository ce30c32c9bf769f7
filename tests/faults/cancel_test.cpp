// Hosts that cancel a job at every block and event.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "services/hash.h"
#include "tests/support/chain.h"
#include "tests/support/media_bytes.h"
#include "tests/support/media_layout.h"
#include "tests/support/scripted_host.h"

namespace {

using namespace MTF;
using test_support::Call;
using test_support::Chain;
using test_support::Fault;
using test_support::Kind;
using test_support::Op;
using test_support::Test_Job;

constexpr const char* end_order = "ESET TFDD TSMP ESET EOTM";

// Cancels from a thread of its own.
void cancel(Event_Handler& events) {
  std::thread([&events] { events.set_canceling(); }).join();
}

// The blocks and streams of the sources on a media, and whether its end stands behind them. What a
// cancel cut off in the middle counts as far as it is there.
std::pair<std::string, bool> sources(const std::string& media) {
  const std::string order = test_support::media_order(media);
  const std::size_t end = order.find("ESET");
  const std::size_t cut = std::min({end, order.find("????"), order.size()});
  const bool ended = end != std::string::npos;
  EXPECT_EQ(ended ? order.substr(end) : end_order, end_order);
  return {order.substr(0, cut), ended};
}

// Whether a write at `place` carries content of a file: not its header, nor what aligns the next.
bool in_content(const std::string& media, std::size_t place, std::size_t size) {
  const auto items = test_support::media_items(media);
  for (std::size_t i = 0; i + 1 < items.size(); ++i) {
    if (items[i].id != "STAN" || place < items[i].data || place >= items[i + 1].at) continue;
    return size >= 4;
  }
  return false;
}

// Writes of the channel behind the one at which the host cancelled.
long writes_behind(const Test_Job& job, const Call& call) {
  return std::count_if(job.storage.log.begin(), job.storage.log.end(), [&](const Call& now) {
    return now.op == Op::write && now.channel == call.channel && now.at > call.at;
  });
}

// Where the last stream of the sources ends on a media.
std::size_t end_of_sources(const std::string& media) {
  std::size_t end = 0;
  for (const auto& item : test_support::media_items(media)) {
    if (item.id == "ESET") break;
    if (item.id != "SPAD") end = item.data + item.length;
  }
  return end;
}

class Cancel : public Chain, public testing::WithParamInterface<Kind> {
 protected:
  void SetUp() override {
    start(GetParam());
    ASSERT_TRUE(run(whole_, GetParam()));
  }

  void cancel_at(const Call& call, std::size_t size, bool and_fail);
  void expect_order(Test_Job& job, bool done);
  // Channels whose media has its end.
  std::vector<unsigned long long> expect_media(const Test_Job& job) const;

  Test_Job whole_;
  int cut_contents_ = 0;
};

std::vector<unsigned long long> Cancel::expect_media(const Test_Job& job) const {
  std::vector<unsigned long long> ended;
  for (unsigned long long n : test_support::channel_numbers(GetParam().channels)) {
    const std::string name = "j.2." + std::to_string(n);
    const auto [order, has_end] = sources(job.storage.bytes(name + ".mtf"));
    const auto [whole, whole_has_end] = sources(whole_.storage.bytes(name + ".mtf"));
    EXPECT_EQ(whole.compare(0, order.size(), order), 0) << order;
    EXPECT_EQ(job.storage.pieces.count(name + ".cat") == 1, has_end);
    if (has_end) ended.push_back(n);
  }
  return ended;
}

void Cancel::expect_order(Test_Job& job, bool done) {
  EXPECT_TRUE(job.events.is_canceling());
  EXPECT_EQ(job.backup.err_code(), 0U);
  EXPECT_EQ(job.backup.err_msg(), "");
  EXPECT_EQ(job.events.all(event_summary).size(), done ? 1U : 0U);
  EXPECT_EQ(job.events.all(event_piece_open_failed).size(), 0U);
  EXPECT_EQ(job.log->count("128 Failed to write media\n"), 0);
  EXPECT_EQ(job.log->count("128 Failed to execute backup task"), 0);
  EXPECT_EQ(job.log->count("128 Failed to execute "), done ? 0 : 1);
}

void Cancel::cancel_at(const Call& call, std::size_t size, bool and_fail) {
  std::ostringstream where;
  where << GetParam() << ", write " << call.at << " of channel " << call.channel << ", "
        << call.piece << " at " << call.place << (and_fail ? ", which fails" : "");
  SCOPED_TRACE(where.str());
  Test_Job job(and_fail ? Fault{Op::write, call.at, call.channel} : Fault{});
  const bool one = GetParam().channels == 1;
  job.storage.on_call = [&](const Call& now) {
    if (now.op != Op::write || now.channel != call.channel || now.at != call.at) return;
    // All that the job is to save is on its way.
    while (one && !GetParam().incremental && job.events.progress().percent != 100) {
      std::this_thread::yield();
    }
    cancel(job.events);
  };
  const bool done = run(job, GetParam());
  expect_order(job, done);
  if (!and_fail) {
    EXPECT_EQ(job.events.all(event_piece_write_failed).size(), 0U);
    const auto ended = expect_media(job);
    const bool all = ended.size() == GetParam().channels;
    EXPECT_EQ(all ? test_support::faults_of(job.storage.pieces, 2, ended) : "", "");
    const std::string media =
        call.piece == "j.2.0.mtf" ? whole_.storage.bytes(call.piece) : std::string();
    const bool before_the_end = call.piece == "j.2.0.mtf" && call.place < end_of_sources(media);
    EXPECT_TRUE(!one || ended.empty() == before_the_end);
    // Behind the header of a frame comes its data, and then nothing more of the file.
    if (one && in_content(media, call.place, size)) {
      EXPECT_LE(writes_behind(job, call), 1);
      ++cut_contents_;
    }
  }
  EXPECT_TRUE(done || !one || GetParam().incremental);
  expect_taken_back(job);
}

TEST_P(Cancel, AtEveryWrite) {
  const std::vector<Call>& log = whole_.storage.log;
  for (auto call = log.begin(); call != log.end(); ++call) {
    if (call->op != Op::write) continue;
    const auto next = std::find_if(call + 1, log.end(), [&](const Call& later) {
      return later.piece == call->piece && later.place > call->place;
    });
    cancel_at(*call, next == log.end() ? 0 : next->place - call->place, false);
    if (GetParam().channels == 1) cancel_at(*call, 0, true);
  }
  EXPECT_TRUE(GetParam().channels > 1 || cut_contents_ > 10) << cut_contents_;
}

TEST_P(Cancel, AtEveryEvent) {
  for (int at = 1;; ++at) {
    SCOPED_TRACE(at);
    Test_Job job;
    std::atomic<int> events{0};
    job.events.on_event = [&] {
      if (++events == at) cancel(job.events);
    };
    const bool done = run(job, GetParam());
    if (!job.events.is_canceling()) {
      EXPECT_GT(at, 5);
      break;
    }
    expect_order(job, done);
    expect_media(job);
    expect_taken_back(job);
  }
}

INSTANTIATE_TEST_SUITE_P(Kinds, Cancel,
                         testing::Values(Kind{1, false, false}, Kind{1, true, true},
                                         Kind{2, false, true}, Kind{2, true, false}));

// Gives more files than the queues hold, all of them for channel 2.
class Many_Files : public ISrc_Lister {
 public:
  explicit Many_Files(unsigned seq) : seq_(seq) {}
  using ISrc_Lister::next;
  bool next(Cat_Blk& block) override {
    if (++given_ == 1) return give(block, test_support::vol_block("X:"));
    if (given_ == 2) return give(block, test_support::dir_block("d\\"));
    if (given_ > 70000) return give(block, test_support::end_block());
    std::string name;
    do {
      name = std::to_string(++name_);
    } while (get_hash_func(hash_xxh32)("X:\\d\\" + name) % 2 != 1);
    return give(block, test_support::file_block(name));
  }

 private:
  bool give(Cat_Blk& block, std::string bytes) const {
    test::set_le(bytes, 6, seq_, 2);
    test::seal_record(bytes, 0);
    if (!block.alloc_buffer(static_cast<unsigned int>(bytes.size()))) return false;
    std::copy(bytes.begin(), bytes.end(), block.data());
    return true;
  }

  const unsigned seq_;
  unsigned given_ = 0, name_ = 0;
};

// Runs the job `seq` of these files, of which the first has none.
void run_many(Test_Job& job, std::shared_ptr<test_support::Script> script, bool incremental) {
  script->dir("X:\\d");
  job.callbacks = test_support::scripted_factory(script);
  ASSERT_TRUE(job.init("X:", 2, incremental ? 2 : 1));
  const bool done = incremental ? job.backup.incremental() : job.backup.full();
  EXPECT_EQ(done, !job.events.is_canceling());
}

// Channel 2 stops at the cancel with its queue full, while channel 1 has nothing to do: neither it
// nor what feeds both may be left waiting.
TEST(Cancel_Queue, AFullOneOfAChannelThatStops) {
  Test_Job base;
  auto script = std::make_shared<test_support::Script>();
  run_many(base, script, false);
  for (bool incremental : {false, true}) {
    script->lister = [incremental] { return new Many_Files(incremental ? 2 : 1); };
    Test_Job job;
    job.storage.pieces = base.storage.pieces;
    std::atomic<bool> idle{false};
    job.storage.on_write = [&idle](const char* data, unsigned long long size) {
      if (std::string_view(data, size).substr(0, 4) == "DIRB") idle = true;
    };
    job.storage.on_call = [&](const Call& call) {
      if (call.op != Op::write || call.channel != 2 || call.at != 1) return;
      while (!idle) std::this_thread::yield();
      // The sooner, the likelier channel 1 sees the cancel on its own.
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      cancel(job.events);
    };
    run_many(job, script, incremental);
    EXPECT_EQ(job.backup.err_code(), 0U);
    const std::string media = job.storage.bytes(incremental ? "j.2.2.mtf" : "j.1.2.mtf");
    EXPECT_EQ(test_support::media_order(media), "TAPE SSET META VOLB");
  }
}

}  // namespace
