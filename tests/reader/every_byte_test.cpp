// A media in which any one byte is wrong.
#include <gtest/gtest.h>

#include <set>

#include "mtf/reader/jobs.h"
#include "tests/support/media_bytes.h"
#include "tests/support/media_layout.h"
#include "tests/support/scripted_host.h"
#include "tests/support/test_job.h"

namespace {

using namespace MTF;
using test_support::Item;

constexpr std::size_t fixed_parts = 128;  // no block has a longer one

unsigned long long faults(const std::map<std::string, std::string>& pieces) {
  test::Memory_Store store;
  store.held = pieces;
  return verify_job(store, Job_Pieces{"j", 1, {0}, true}, [](const Fault&) {}).faults;
}

// The block or stream that holds a byte, and the byte's place in it.
std::string place(const std::vector<Item>& items, std::size_t at) {
  const auto next =
      std::find_if(items.begin(), items.end(), [at](const Item& item) { return item.at > at; });
  const Item& item = *std::prev(next);
  return item.id + '+' + std::to_string(at - item.at);
}

// But for a CTEX stream, which has no checksum, the date of the TAPE block and the ids of files,
// which nothing repeats.
TEST(Verify, TellsOfEveryWrongByte) {
  const auto script = std::make_shared<test_support::Script>();
  script->dir("X:\\d").mtime = 1;
  script->file("X:\\d\\f", "hello").mtime = 1;
  test_support::Test_Job job;
  job.callbacks = test_support::scripted_factory(script);
  ASSERT_TRUE(job.run("X:"));
  std::map<std::string, std::string> pieces = job.storage.pieces;
  ASSERT_EQ(faults(pieces), 0U);
  std::string& media = pieces.at("j.1.0.mtf");
  const std::vector<Item> items = test_support::media_items(media);
  std::set<std::size_t> tried;
  for (const Item& item : items) {
    for (std::size_t i = 0; i < fixed_parts; ++i) tried.insert(item.at + i);
  }
  for (std::size_t at = 0; at < media.size(); ++at) {
    if (media[at] != 0) tried.insert(at);
  }
  tried.erase(tried.lower_bound(media.size()), tried.end());
  std::set<std::string> missed;
  for (const std::size_t at : tried) {
    media[at] ^= '\xFF';
    const std::string missed_at = faults(pieces) == 0 ? place(items, at) : "";
    if (!missed_at.empty() && missed_at.compare(0, 4, "CTEX") != 0) missed.insert(missed_at);
    media[at] ^= '\xFF';
  }
  EXPECT_GT(tried.size(), 2000U);
  EXPECT_EQ(missed, (std::set<std::string>{"FILE+80", "FILE+81", "FILE+82", "FILE+83", "TAPE+88",
                                           "TAPE+89", "TAPE+90", "TAPE+91", "TAPE+92"}));
}

}  // namespace
