// What a host gives a job and what it is told.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <thread>

#include "platform/native_path.h"
#include "tests/support/media_layout.h"
#include "tests/support/test_job.h"

namespace {

using namespace MTF;
using namespace test_support;
using Texts = std::vector<std::string>;

class Backup_Job : public testing::Test {
 protected:
  Backup_Job() { platform::Volume_Roots::instance().set("X:", tree.path()); }
  ~Backup_Job() override { platform::Volume_Roots::instance().clear(); }

  const Temp_Dir tree;
};

TEST_F(Backup_Job, ChannelsInTheMetadataAndTheEvents) {
  write_file(tree / "f", "");
  const char* const many = R"({"channels":2,"hash_algorithm":"xxh32","seq":1})";
  for (unsigned channels : {0U, 1U, 2U}) {
    Test_Job job;
    ASSERT_TRUE(job.run("X:", channels));
    const bool one = channels < 2;
    EXPECT_EQ(stream_data(job.media(one ? 0 : 1), "META"),
              one ? R"({"channels":0,"seq":1})" : many);
    EXPECT_EQ(one ? many : stream_data(job.media(2), "META"), many);
    EXPECT_EQ(job.storage.pieces.size(), one ? 2U : 4U);
    Texts made{R"({"channel":1,"message":"Success","name":"backup","result":true})"};
    Texts started{R"({"name":"full_source_producer","result":true})"};
    if (!one) {
      made.push_back(R"({"channel":2,"message":"Success","name":"backup","result":true})");
      made.push_back(R"({"message":"Success","name":"source_sharding","result":true})");
      started.push_back(R"({"name":"source_sharding","result":true})");
    }
    made.push_back(R"({"message":"Success","name":"full_source_producer","result":true})");
    EXPECT_EQ(job.events.texts(event_task_made), made);
    EXPECT_EQ(job.events.texts(event_task_started), started);
    EXPECT_EQ(job.backup.summary().vol_count(), 1U);
    EXPECT_EQ(job.backup.summary().file_count(), 1U);
    job.backup.clean();
    EXPECT_EQ(job.storage.trace.back(), "disconnect");
    job.backup.remove_storage_file();
    EXPECT_EQ(job.storage.removed,
              one ? (Texts{"j.1.0.mtf", "j.1.0.cat"})
                  : (Texts{"j.1.2.mtf", "j.1.2.cat", "j.1.1.mtf", "j.1.1.cat"}));
    job.backup.clean();
  }
}

// The bytes of a small job: a deep directory, a name stream, content, files of size 0.
TEST_F(Backup_Job, TheMediaTheCatalogAndTheSummary) {
  std::string dir = tree / "s";
  for (char c = 'a'; c < 'f'; ++c) {
    ::mkdir(dir.c_str(), 0700);
    write_file(dir + "/" + c, std::string(c == 'a' ? 70001 : 0, c));
    dir += "/" + std::string(250, c);
  }
  Test_Job job({}, 4096);
  ASSERT_TRUE(job.run("X:\\s"));
  const std::string media = job.media();
  EXPECT_EQ(media_order(media),
            "TAPE MARK SSET META VOLB DIRB FILE STAN CSUM CTEX DIRB FILE CTEX DIRB FILE CTEX "
            "DIRB FILE CTEX DIRB PNAM FILE CTEX MARK ESET TFDD TSMP ESET MARK EOTM MARK");
  unsigned long long eset_address = 0;
  for (const auto& item : media_items(media)) {
    if (!item.block) continue;
    const bool physical = item.id == "ESET" || item.id == "EOTM" || item.id == "SSET";
    EXPECT_EQ(item.at % (physical ? 4096 : 512), 0U);
    // The second copy of the ESET block keeps the address of the first.
    const bool copy = item.id == "ESET" && eset_address != 0;
    EXPECT_EQ(get_le(media, item.at + 20, 8), copy ? eset_address : item.at / 512) << item.id;
    if (item.id == "ESET") eset_address = get_le(media, item.at + 20, 8);
    EXPECT_EQ(get_le(media, item.at + 50, 2), xor16(media, item.at, 50));
  }
  EXPECT_EQ(media.size() % 4096, 0U);
  const auto summaries = job.events.all(event_summary);
  ASSERT_EQ(summaries.size(), 1U);
  const std::size_t storage = media.size() + job.catalog().size();
  EXPECT_EQ(summaries[0], json_spirit::Value({{"vol_count", 1},
                                              {"dir_count", 5},
                                              {"file_count", 5},
                                              {"total_size", 73728},
                                              {"inc_size", 73728},
                                              {"storage_size", storage},
                                              {"inc_file_count", 5},
                                              {"skipped_dirs", 0},
                                              {"skipped_files", 0}}));
  EXPECT_EQ(job.backup.err_code(), 0U);
  EXPECT_EQ(job.storage.trace, (Texts{"open j.1.0.mtf", "close", "open j.1.0.cat", "close"}));
}

TEST_F(Backup_Job, NoSourceIsNoFailureAndAMissingOneHasNoCode) {
  for (const char* source : {"", "X:\\none"}) {
    for (unsigned channels : {1U, 2U}) {
      Test_Job job;
      EXPECT_EQ(job.run(source, channels), *source == '\0');
      EXPECT_EQ(job.backup.err_code(), 0U);
      EXPECT_EQ(job.backup.err_msg(), "");
      EXPECT_EQ(job.events.all(event_summary).empty(), *source != '\0');
      EXPECT_EQ(job.log->count(channels == 1 ? "128 Failed to execute full source producer task"
                                             : "128 Failed to execute source sharding task"),
                *source != '\0');
      EXPECT_EQ(job.log->count("128 Failed to convert sources to source_list_type\n"),
                *source != '\0');
      // The media is well formed but empty.
      EXPECT_EQ(media_order(job.media(channels == 1 ? 0 : 1)),
                "TAPE SSET META ESET TFDD TSMP ESET EOTM");
      job.backup.clean();
      EXPECT_NE(::access((job.cache_dir + "/j").c_str(), F_OK), 0);
      job.backup.remove_storage_file();
      EXPECT_TRUE(job.storage.pieces.empty());
    }
  }
}

TEST_F(Backup_Job, SequenceNumbers) {
  for (unsigned seq : {1U, 2U, 0xFFFFU, 0x10000U, 0x10003U}) {
    Test_Job job;
    ASSERT_TRUE(job.init("", 1, seq));
    if (seq > 0xFFFF) {
      EXPECT_FALSE(job.backup.full());
      EXPECT_EQ(job.log->count("128 No job can follow job "), 1);
      job.backup.remove_storage_file();
      EXPECT_TRUE(job.storage.log.empty());
      continue;
    }
    ASSERT_TRUE(job.backup.full());
    EXPECT_EQ(job.backup.seq(), seq);
    const std::string name = "j." + std::to_string(seq) + ".0.mtf";
    ASSERT_EQ(job.storage.pieces.count(name), 1U);
    const std::string& media = job.storage.pieces[name];
    EXPECT_EQ(get_le(media, 4, 4), seq == 1 ? 0x30000U : 0x30001U);
    EXPECT_EQ(get_le(media, 60, 2), seq);
    EXPECT_EQ(get_le(media, 64, 2), 4096U);
    EXPECT_EQ(get_le(media, 84, 2), 512U);
    EXPECT_EQ(stream_data(media, "META"), R"({"channels":0,"seq":)" + std::to_string(seq) + "}");
  }
}

TEST_F(Backup_Job, RefusesToStartWithoutWhatItNeeds) {
  Test_Job job;
  job.backup.remove_storage_file();
  job.backup.clean();
  EXPECT_FALSE(job.backup.full());
  EXPECT_TRUE(job.log->asserted("channel_factory_.get() is NULL"));
  job.backup.clean();
  const auto init = [&](Backup& backup, const char* stem, Ref_Ptr<Channel_Factory> channels) {
    return backup.init(stem, nullptr, 0, 4, 1, 0, sparse_default, channels,
                       Ref_Ptr<IBackup_Callback_Factory>(), nullptr, Backup::no_pre_action_data, 1,
                       job.cache_dir.c_str(), 1);
  };
  EXPECT_FALSE(init(job.backup, nullptr, job.channels));
  EXPECT_TRUE(job.log->asserted("minor_resource_id is NULL"));
  EXPECT_FALSE(init(job.backup, "", job.channels));
  EXPECT_TRUE(job.log->asserted("minor_resource_id is empty"));
  EXPECT_FALSE(init(job.backup, "j", Ref_Ptr<Channel_Factory>()));
  EXPECT_TRUE(job.log->asserted("channel_factory.get() is NULL"));
  const auto& factory = static_cast<const Fault_Factory&>(*job.channels);
  EXPECT_EQ(job.backup.seq(), 0U);
  EXPECT_EQ(factory.block_size(), 0U);
  EXPECT_TRUE(init(job.backup, "j", job.channels));
  EXPECT_EQ(job.backup.seq(), 4U);
  EXPECT_EQ(factory.block_size(), 4096U);
  Backup silent(Ref_Ptr<Event_Handler>(), job.metadata, job.log);
  ASSERT_TRUE(init(silent, "j", job.channels));
  EXPECT_FALSE(silent.full());
  EXPECT_TRUE(job.log->asserted("evt_handler.get() is NULL"));
  EXPECT_TRUE(job.storage.pieces.empty());
}

TEST_F(Backup_Job, OnlyPiecesOfItsOwnAreTakenBack) {
  Test_Job job;
  ASSERT_TRUE(job.init("", 1, 1));
  job.backup.remove_storage_file();
  EXPECT_FALSE(job.backup.incremental());
  job.backup.remove_storage_file();
  EXPECT_TRUE(job.storage.removed.empty());
  EXPECT_TRUE(job.backup.full());
  job.backup.remove_storage_file();
  EXPECT_EQ(job.storage.removed, (Texts{"j.1.0.mtf", "j.1.0.cat"}));
}

TEST_F(Backup_Job, WhatAnotherJobHasKeepsItFromStarting) {
  Test_Job job;
  job.storage.on_write = [&](auto&&...) {
    job.storage.on_write = nullptr;
    Test_Job other;
    other.cache_dir = job.cache_dir;
    other.channels = job.channels;
    EXPECT_FALSE(other.run(""));
    other.backup.clean();
    EXPECT_EQ(::access((job.cache_dir + "/j/0.cat").c_str(), F_OK), 0);
    other.backup.remove_storage_file();
  };
  EXPECT_TRUE(job.run("") && job.storage.removed.empty());
  Test_Job failed({Op::write, 1});
  EXPECT_FALSE(failed.run(""));
  Backup again(failed.handler, failed.metadata, failed.log);
  Job_Settings settings;
  settings.minor_resource_id = "j";
  settings.channel_factory = job.channels;
  EXPECT_TRUE(again.init(settings) && !again.full());
  EXPECT_EQ(failed.log->count("128 The event handler is that of a job that failed"), 1);
}

// Linked, odd and special files find no block writer and stay out with a line.
TEST_F(Backup_Job, BlocksWithoutAWriterAreDropped) {
  write_file(tree / "a", "1");
  ASSERT_EQ(::link((tree / "a").c_str(), (tree / "b").c_str()), 0);
  ASSERT_EQ(::symlink("a", (tree / "c").c_str()), 0);
  Test_Job job;
  ASSERT_TRUE(job.run("X:"));
  EXPECT_EQ(media_order(job.media()),
            "TAPE SSET META VOLB FILE STAN CSUM CTEX ESET TFDD TSMP ESET EOTM");
  EXPECT_EQ(job.log->count("32 Failed to get dblk writer type=4b4e4c48\n"), 1);
  EXPECT_EQ(job.log->count("32 Failed to get dblk writer type=534c4e4b\n"), 1);
  EXPECT_EQ(job.backup.err_code(), 0U);
}

// Runs as nobody where the tests run as root, whom no mode keeps out.
class As_Nobody {
 public:
  As_Nobody() {
    if (root_ && ::setresuid(65534, 65534, 0) != 0) ADD_FAILURE();
  }
  ~As_Nobody() {
    if (root_ && ::setresuid(0, 0, 0) != 0) ADD_FAILURE();
  }

 private:
  const bool root_ = ::geteuid() == 0;
};

TEST_F(Backup_Job, WhatCannotBeReadIsNamedAndCounted) {
  const As_Nobody nobody;
  const Temp_Dir own;
  for (const char* name : {"a", "b"}) write_file(own / name, "x");
  for (const char* name : {"closed", "blind"}) ::mkdir((own / name).c_str(), 0700);
  write_file(own / "blind/f", "x");
  ::chmod((own / "closed").c_str(), 0);
  ::chmod((own / "blind").c_str(), 0400);  // lists names but opens nothing
  ::chmod((own / "a").c_str(), 0);
  platform::Volume_Roots::instance().set("X:", own.path());
  Test_Job job;
  EXPECT_TRUE(job.run("X:"));
  EXPECT_EQ(job.backup.err_code(), 14U);
  EXPECT_EQ(job.log->count("32 Backup completed with 1 skipped directories, 2 skipped files.\n"),
            1);
  Texts skips = job.events.texts(event_skipped);
  std::sort(skips.begin(), skips.end());
  EXPECT_EQ(
      skips,
      (Texts{
          R"({"errno":13,"message":"Failed to open directory.","name":"X:\\closed","type":"directory"})",
          R"({"errno":13,"message":"Failed to open file","name":"X:\\a","type":"file"})",
          R"({"errno":13,"message":"Failed to stat file","name":"X:\\blind\\f","type":"file"})"}));
  EXPECT_EQ(media_order(job.media()),
            "TAPE SSET META VOLB FILE STAN CSUM CTEX DIRB DIRB ESET TFDD TSMP ESET EOTM");
  for (const char* name : {"closed", "blind"}) ::chmod((own / name).c_str(), 0700);
}

TEST_F(Backup_Job, ADirectoryThatCannotBeListedIsSaved) {
  const As_Nobody nobody;
  const Temp_Dir own;
  for (const char* dir : {"d", "d/e", "d/e/x"}) ::mkdir((own / dir).c_str(), 0700);
  for (const char* file : {"g", "d/f", "d/h", "d/e/f", "d/e/h"}) write_file(own / file, "x");
  for (const char* dir : {"d/e", "d"}) ::chmod((own / dir).c_str(), 0311);
  platform::Volume_Roots::instance().set("X:", own.path());
  const struct {
    Texts sources, entries;
    std::size_t skips;
  } rows[] = {{{"X:\\d\\f"}, {"VOLB X:", "DIRB d\\", "FILE f", "FEND"}, 0},
              {{"X:\\", "X:\\d\\f"}, {"VOLB X:", "FILE g", "DIRB d\\", "FILE f", "FEND"}, 1},
              {{"X:\\d", "X:\\d\\e\\x", "X:\\d\\e\\h", "X:\\d\\h"},
               {"VOLB X:", "DIRB d\\", "FILE h", "DIRB d\\e\\", "FILE h", "DIRB d\\e\\x\\", "FEND"},
               2}};
  for (const auto& row : rows) {
    for (const int way : {0, 1, 2, 3}) {
      Test_Job job;
      job.threads = way / 2 + 1;
      job.backup.backup_read(way % 2 == 0);
      for (const std::string& source : row.sources) job.backup.add_source(source);
      EXPECT_TRUE(job.run(""));
      EXPECT_EQ(catalog_entries(job.catalog()), row.entries);
      EXPECT_EQ(job.events.all(event_skipped).size(), row.skips);
      EXPECT_EQ(job.log->count("32 Extended attribute"), 0);
    }
  }
  for (const char* dir : {"d", "d/e"}) ::chmod((own / dir).c_str(), 0700);
}

// Files that change between the walk and the last byte, from inside the storage.
class Changing : public Backup_Job, public testing::WithParamInterface<unsigned short> {
 protected:
  Changing() { write_file(file, std::string(200000, 'x')); }

  // Runs a job in which `change` is called when the block of `type` is written.
  bool run(const std::string& type, const std::function<void()>& change) {
    job.storage.on_write = [this, type, change](const char* data, unsigned long long size) {
      while (job.events.progress().percent != 100) std::this_thread::yield();
      if (size > 50 && type == std::string(data, 4)) change();
    };
    return job.run("X:\\f");
  }

  const std::string file = tree / "f";
  Test_Job job;
};

TEST_F(Changing, AFileThatGrowsIsCutAtItsSize) {
  EXPECT_TRUE(run("FILE", [this] { write_file(file, std::string(300000, 'y')); }));
  EXPECT_EQ(stream_data(job.media(), "STAN"), std::string(200000, 'y'));
  EXPECT_EQ(media_order(job.media()),
            "TAPE SSET META VOLB FILE STAN CSUM CTEX ESET TFDD TSMP ESET EOTM");
  EXPECT_EQ(job.backup.err_code(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Methods, Changing, testing::Values(0, 1, 2));

TEST_P(Changing, AFileThatShrinksIsFilledUpAndNamed) {
  job.compression = GetParam();
  EXPECT_TRUE(run("FILE", [this] { EXPECT_EQ(::truncate(file.c_str(), 70000), 0); }));
  const std::string media = job.media();
  EXPECT_EQ(media_order(media), "TAPE SSET META VOLB FILE STAN CFIL ESET TFDD TSMP ESET EOTM");
  if (GetParam() == 0) {
    EXPECT_EQ(stream_data(media, "STAN"), std::string(70000, 'x') + std::string(130000, '\0'));
  }
  for (const auto& item : media_items(media)) {
    if (item.id == "CFIL") {
      EXPECT_EQ(get_le(media, item.at + 52, 4), 0x10000U);
      EXPECT_EQ(get_le(media, item.at + 64, 8), 70000U);
      EXPECT_EQ(get_le(media, item.at + 72, 2), 1U);
    }
    if (item.id == "ESET") {
      EXPECT_EQ(get_le(media, item.at + 52, 4), GetParam() == 0 ? 4U : 6U);
      EXPECT_EQ(get_le(media, item.at + 56, 4), 1U);
    }
    const bool may_be_compressed = item.id == "SSET" || item.id == "VOLB" || item.id == "FILE";
    if (may_be_compressed) {
      EXPECT_EQ(get_le(media, item.at + 4, 2), GetParam() == 0 ? 0U : 2U);
    }
  }
  EXPECT_EQ(catalog_entries(job.catalog()), (Texts{"VOLB X:", "FEND"}));
  EXPECT_EQ(job.events.texts(event_corrupt),
            (Texts{R"({"message":"length changed","name":"X:\\f","type":"file"})"}));
  EXPECT_EQ(job.backup.err_code(), 0U);
}

TEST_F(Changing, WhatVanishesIsNamedAndFailsAJobThatHasNothingElse) {
  EXPECT_FALSE(run("VOLB", [this] { ::unlink(file.c_str()); }));
  EXPECT_EQ(job.backup.err_code(), 13U);
  EXPECT_EQ(job.events.texts(event_skipped),
            (Texts{R"({"errno":2,"message":"Failed to stat file","name":"X:\\f","type":"file"})"}));
  EXPECT_EQ(job.log->count("128 0 dirs and 1 files skipped, but no file backuped up.\n"), 1);
  ASSERT_EQ(job.events.all(event_summary).size(), 1U);
  EXPECT_EQ(job.events.all(event_summary)[0].at("skipped_files"), 1);
  EXPECT_EQ(media_order(job.media()), "TAPE SSET META VOLB ESET TFDD TSMP ESET EOTM");
}

// Its files are named with it, the ones that didn't change as well, and with its reason.
TEST_F(Changing, ADirectoryThatBecomesALinkIsNamedWithItsFiles) {
  const std::string dir = tree / "d", aside = tree / "aside";
  ::mkdir(dir.c_str(), 0700);
  write_file(dir + "/old", "");
  Test_Job base;
  ASSERT_TRUE(base.run("X:\\d"));
  write_file(dir + "/new", "");
  job.backup.backup_read(true);
  job.storage.on_write = [&](const char* data, unsigned long long size) {
    while (job.events.progress().percent != 100) std::this_thread::yield();
    if (size < 50 || std::string(data, 4) != "VOLB" || ::access(aside.c_str(), F_OK) == 0) return;
    EXPECT_EQ(::rename(dir.c_str(), aside.c_str()), 0);
    EXPECT_EQ(::symlink("aside", dir.c_str()), 0);
  };
  EXPECT_FALSE(job.run_second("X:\\d", base.storage.pieces));
  Texts told;
  for (const auto& event : job.events.all(event_skipped)) {
    EXPECT_EQ(event.at("errno"), job.events.all(event_skipped)[0].at("errno"));
    EXPECT_NE(event.at("errno"), ENOENT);
    told.push_back(event.at("name"));
  }
  EXPECT_EQ(told, (Texts{"X:\\d", "X:\\d\\new", "X:\\d\\old"}));
  EXPECT_EQ(job.events.all(event_summary)[0].at("skipped_files"), 2);
}

}  // namespace
