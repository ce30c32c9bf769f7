// The media of a small job, block by block, and of one without its source.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/native_path.h"
#include "tests/support/media_layout.h"
#include "tests/support/test_job.h"

namespace {

using namespace MTF;
using Texts = std::vector<std::string>;
using test_support::Test_Job;
using test_support::write_file;

// A small source on the volume `X:`: a deep directory, a name stream, content, a file of size 0.
class Small_Job : public testing::Test {
 protected:
  Small_Job() {
    platform::Volume_Roots::instance().set("X:", tree.path());
    std::string dir = tree / "s";
    for (char c = 'a'; c < 'f'; ++c) {
      ::mkdir(dir.c_str(), 0700);
      write_file(dir + "/" + c, std::string(c == 'a' ? 70001 : 0, c));
      dir += "/" + std::string(250, c);
    }
  }
  ~Small_Job() override { platform::Volume_Roots::instance().clear(); }

  const test_support::Temp_Dir tree;
};

void expect_nothing_left(Test_Job& job) {
  job.backup.clean();
  EXPECT_NE(::access((job.cache_dir + "/j").c_str(), F_OK), 0);
  job.backup.remove_storage_file();
  EXPECT_TRUE(job.storage.pieces.empty());
}

TEST_F(Small_Job, TheOrderOfTheMedia) {
  Test_Job job({}, 4096);
  ASSERT_TRUE(job.run("X:\\s"));
  EXPECT_EQ(test_support::media_order(job.media()),
            "TAPE MARK SSET META VOLB DIRB FILE STAN CSUM CTEX DIRB FILE CTEX DIRB FILE CTEX "
            "DIRB FILE CTEX DIRB PNAM FILE CTEX MARK ESET TFDD TSMP ESET MARK EOTM MARK");
  unsigned long long eset_address = 0;
  for (const auto& item : test_support::media_items(job.media())) {
    if (!item.block) continue;
    EXPECT_EQ(item.at % 512, 0U);
    // The second copy of the ESET block keeps the address of the first.
    const unsigned long long place =
        item.id == "ESET" && eset_address != 0 ? eset_address : item.at / 512;
    if (item.id == "ESET") eset_address = place;
    EXPECT_EQ(test_support::number(job.media(), item.at + 20, 8), place) << item.id;
    EXPECT_EQ(test_support::number(job.media(), item.at + 50, 2),
              test_support::naive_checksum(&job.media()[item.at], 50));
    if (item.id == "ESET" || item.id == "EOTM" || item.id == "SSET") {
      EXPECT_EQ(item.at % 4096, 0U);
    }
  }
  EXPECT_EQ(job.media().size() % 4096, 0U);
  EXPECT_EQ(job.storage.trace, (Texts{"open j.1.0.mtf", "close", "open j.1.0.cat", "close"}));
  expect_nothing_left(job);
  EXPECT_EQ(job.storage.removed, (Texts{"j.1.0.mtf", "j.1.0.cat"}));
}

TEST_F(Small_Job, ASourceThatIsMissingFailsWithoutACode) {
  for (unsigned channels : {1U, 2U}) {
    Test_Job job;
    EXPECT_FALSE(job.run("X:\\none", channels));
    EXPECT_EQ(job.backup.err_code(), 0U);
    EXPECT_EQ(job.backup.err_msg(), "");
    EXPECT_TRUE(job.events.all(event_summary).empty());
    EXPECT_EQ(job.log->count(channels == 1 ? "128 Failed to execute full source producer task"
                                           : "128 Failed to execute source sharding task"),
              1);
    // The media is well formed but empty.
    EXPECT_EQ(test_support::media_order(job.media(channels == 1 ? 0 : 1)),
              "TAPE SSET META ESET TFDD TSMP ESET EOTM");
    expect_nothing_left(job);
  }
}

}  // namespace
