// Jobs whose working files can't be made, can't grow or go away.
#include <gtest/gtest.h>

#include <filesystem>

#include "platform/tree.h"
#include "tests/support/chain.h"
#include "tests/support/media_layout.h"

namespace {

namespace fs = std::filesystem;
using namespace MTF;
using Texts = std::vector<std::string>;
using test_support::Call;
using test_support::Chain;
using test_support::Kind;
using test_support::Op;
using test_support::Test_Job;
using test_support::writer_text;

constexpr const char* no_cache = "Failed to create catalog in cache.";
constexpr const char* no_media_catalog = "Failed to open media based catalog.";

// How many lines name a local file of the job that failed.
long local_failures(const Test_Job& job) {
  long lines = 0;
  for (const char* verb : {"make", "write", "extend", "read"}) {
    const std::string start = std::string("128 Failed to ") + verb + " local file, path=";
    lines += job.log->count(start + job.cache_dir);
  }
  return lines;
}

// A failed making of a task tells of the earlier catalog.
bool base_failed(const Test_Job& job) {
  for (const auto& text : job.events.texts(event_task_made)) {
    if (text.find("\"result\":false") != text.npos) return true;
  }
  return false;
}

class Working_Files : public Chain {};

TEST_F(Working_Files, ThatCannotBeMade) {
  const struct {
    const char* path;  // in the job's cache directory, where something of another kind stands
    bool directory;
    Kind kind;
    const char* text;
    const char* event;        // that the catalog failed
    bool base_fails = false;  // the earlier catalog can't be had
  } cases[] = {
      {"", false, {1, false}, no_cache, R"({"channel":0,"errno":20,"result":false})"},
      {"", false, {2, false, false, 2}, no_cache, nullptr},
      {"", false, {1, true}, "", nullptr},
      {"/j", false, {1, false}, no_cache, nullptr},
      {"/j/0.cat", true, {1, false}, no_cache, R"({"channel":0,"errno":21,"result":false})"},
      {"/j/2.cat", true, {2, false}, no_cache, R"({"channel":2,"errno":21,"result":false})"},
      {"/j/0.tfdd", true, {1, false}, no_media_catalog, nullptr},
      {"/j/1.tsmp", true, {2, true}, no_media_catalog, nullptr},
      {"/j/0.prev.cat", true, {1, true}, "", nullptr, true},
      {"/j/2.prev.cat", true, {2, true}, "", nullptr, true},
  };
  std::map<unsigned, std::map<std::string, std::string>> bases;
  for (unsigned channels : {1U, 2U}) {
    start({channels});
    bases[channels] = earlier;
  }
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    Test_Job job;
    const std::string path = job.cache_dir + c.path;
    earlier = bases[c.kind.channels];
    fs::create_directories(c.directory ? path + "/x" : fs::path(path).parent_path().string());
    if (!c.directory) test_support::write_file(path, "somebody's");
    EXPECT_FALSE(run(job, c.kind));
    EXPECT_EQ(job.backup.err_code(), *c.text == '\0' ? 0U : 11U);
    EXPECT_EQ(job.backup.err_msg(), c.text);
    EXPECT_GE(local_failures(job), 1);
    EXPECT_EQ(base_failed(job), c.base_fails);
    const Texts events = job.events.texts(event_catalog_failed);
    EXPECT_TRUE(c.event == nullptr || events == Texts{c.event});
    EXPECT_EQ(events.empty(), c.text != std::string(no_cache));
    EXPECT_TRUE(job.events.all(event_summary).empty());
    if (*c.path == '\0') {
      EXPECT_EQ(test_support::read_file(path), "somebody's");
      fs::remove(path);
    }
    expect_taken_back(job);
  }
}

// The temporary directory goes away with all in it, at each write of a job of one channel.
TEST_F(Working_Files, ThatGoAway) {
  for (const Kind& kind : {Kind{1, false, false, 1}, Kind{1, true, true, 2}}) {
    start(kind);
    Test_Job whole;
    ASSERT_TRUE(run(whole, kind));
    std::size_t detail = 0;
    for (const auto& item : test_support::media_items(whole.storage.bytes("j.2.0.mtf"))) {
      if (item.id == "TFDD") detail = item.at;
    }
    for (const Call& call : whole.storage.log) {
      if (call.op != Op::write) continue;
      SCOPED_TRACE(call.piece + " at " + std::to_string(call.place));
      Test_Job job;
      job.storage.on_call = [&](const Call& now) {
        if (now.op == Op::write && now.at == call.at) platform::remove_tree(job.cache_dir);
      };
      // What is open stays; what is read back by its name is gone.
      const bool catalog = call.piece == "j.2.0.cat";
      EXPECT_EQ(run(job, kind), catalog);
      EXPECT_EQ(job.backup.err_code(), catalog ? 0U : 9U);
      EXPECT_EQ(job.backup.err_msg(), catalog ? "" : writer_text);
      // The scanning threads may come too late to make their list.
      const long late = kind.threads > 1 && !catalog ? local_failures(job) - 1 : 0;
      EXPECT_EQ(local_failures(job), (catalog ? 0 : 1) + std::min(late, 1L));
      EXPECT_EQ(job.events.all(event_piece_write_failed).size(),
                !catalog && call.place >= detail ? 1U : 0U);
      EXPECT_EQ(job.events.all(event_summary).size(), catalog ? 1U : 0U);
      expect_taken_back(job);
    }
  }
}

}  // namespace
