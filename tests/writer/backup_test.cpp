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
using Texts = std::vector<std::string>;
using test_support::Fault_Factory;
using test_support::media_items;
using test_support::media_order;
using test_support::number;
using test_support::Test_Job;
using test_support::write_file;

class Backup_Job : public testing::Test {
 protected:
  Backup_Job() { platform::Volume_Roots::instance().set("X:", tree.path()); }
  ~Backup_Job() override { platform::Volume_Roots::instance().clear(); }

  const test_support::Temp_Dir tree;
};

// The data of the first stream `id` of a media.
std::string stream(const std::string& media, const std::string& id) {
  for (const auto& item : media_items(media)) {
    if (item.id == id) return media.substr(item.data, item.length);
  }
  return "none";
}

TEST_F(Backup_Job, ChannelsInTheMetadataAndTheEvents) {
  write_file(tree / "f", "");
  const char* const many = R"({"channels":2,"hash_algorithm":"xxh32","seq":1})";
  for (unsigned channels : {0U, 1U, 2U}) {
    Test_Job job;
    ASSERT_TRUE(job.run("X:", channels));
    const bool one = channels < 2;
    EXPECT_EQ(stream(job.media(one ? 0 : 1), "META"), one ? R"({"channels":0,"seq":1})" : many);
    if (!one) {
      EXPECT_EQ(stream(job.media(2), "META"), many);
    }
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

TEST_F(Backup_Job, TheSummary) {
  ::mkdir((tree / "d").c_str(), 0700);
  write_file(tree / "d/f", std::string(5000, 'x'));
  write_file(tree / "g", "y");
  Test_Job job;
  ASSERT_TRUE(job.run("X:"));
  const auto summaries = job.events.all(event_summary);
  ASSERT_EQ(summaries.size(), 1U);
  const auto& told = summaries[0];
  EXPECT_EQ(told.size(), 9U);
  for (const auto& [key, value] : {std::pair<const char*, std::size_t>{"vol_count", 1},
                                   {"dir_count", 1},
                                   {"file_count", 2},
                                   {"total_size", 8192 + 4096},
                                   {"inc_size", 8192 + 4096},
                                   {"storage_size", job.media().size() + job.catalog().size()},
                                   {"inc_file_count", 2},
                                   {"skipped_dirs", 0},
                                   {"skipped_files", 0}}) {
    EXPECT_EQ(told.at(key), value) << key;
  }
  EXPECT_EQ(job.backup.err_code(), 0U);
  EXPECT_EQ(test_support::catalog_entries(job.catalog()),
            (Texts{"VOLB X:", "FILE g", "DIRB d\\", "FILE f", "FEND"}));
}

TEST_F(Backup_Job, NoSourceIsNoFailure) {
  Test_Job job;
  EXPECT_TRUE(job.run(""));
  EXPECT_EQ(job.backup.err_code(), 0U);
  EXPECT_EQ(media_order(job.media()), "TAPE SSET META ESET TFDD TSMP ESET EOTM");
  EXPECT_EQ(test_support::catalog_entries(job.catalog()), Texts{"FEND"});
}

TEST_F(Backup_Job, SequenceNumbers) {
  for (unsigned seq : {1U, 2U, 0x10003U}) {
    Test_Job job;
    ASSERT_TRUE(job.init("", 1, seq));
    ASSERT_TRUE(job.backup.full());
    EXPECT_EQ(job.backup.seq(), seq);
    const std::string name = "j." + std::to_string(seq & 0xFFFF) + ".0.mtf";
    ASSERT_EQ(job.storage.pieces.count(name), 1U);
    const std::string& media = job.storage.pieces[name];
    EXPECT_EQ(number(media, 4, 4), seq == 1 ? 0x30000U : 0x30001U);
    EXPECT_EQ(number(media, 56, 4), 1U);
    EXPECT_EQ(number(media, 60, 2), seq & 0xFFFF);
    EXPECT_EQ(number(media, 64, 2), 4096U);
    EXPECT_EQ(number(media, 66, 2), 1U);
    EXPECT_EQ(number(media, 84, 2), 512U);
    EXPECT_EQ(number(media, 93, 1), 1U);
    EXPECT_EQ(stream(media, "META"), R"({"channels":0,"seq":)" + std::to_string(seq) + "}");
  }
}

TEST_F(Backup_Job, InitRefuses) {
  Test_Job job;
  auto* factory = new Fault_Factory(job.storage);
  const Ref_Ptr<Channel_Factory> channels(factory);
  const auto init = [&](const char* stem, const Ref_Ptr<Channel_Factory>& channel_factory) {
    return job.backup.init(stem, nullptr, 0, 4, 1, 0, sparse_default, channel_factory,
                           Ref_Ptr<IBackup_Callback_Factory>(), nullptr, Backup::no_pre_action_data,
                           1, nullptr, 1);
  };
  EXPECT_FALSE(init(nullptr, channels));
  EXPECT_TRUE(job.log->asserted("minor_resource_id is NULL"));
  EXPECT_FALSE(init("", channels));
  EXPECT_TRUE(job.log->asserted("minor_resource_id is empty"));
  EXPECT_FALSE(init("j", Ref_Ptr<Channel_Factory>()));
  EXPECT_TRUE(job.log->asserted("channel_factory.get() is NULL"));
  EXPECT_EQ(job.backup.seq(), 0U);
  EXPECT_EQ(factory->block_size(), 0U);
  EXPECT_TRUE(init("j", channels));
  EXPECT_EQ(job.backup.seq(), 4U);
  EXPECT_EQ(factory->block_size(), 4096U);
}

TEST_F(Backup_Job, AnEventHandlerIsNeeded) {
  Test_Job job;
  Backup backup(Ref_Ptr<Event_Handler>(), job.metadata, job.log);
  backup.backup_read(false);
  ASSERT_TRUE(backup.init("j", nullptr, 0, 0, 1, 0, sparse_default,
                          Ref_Ptr<Channel_Factory>(new Fault_Factory(job.storage)),
                          Ref_Ptr<IBackup_Callback_Factory>(), nullptr, Backup::no_pre_action_data,
                          1, job.cache_dir.c_str(), 1));
  EXPECT_FALSE(backup.full());
  EXPECT_TRUE(job.log->asserted("evt_handler.get() is NULL"));
  EXPECT_TRUE(job.storage.pieces.empty());
}

TEST_F(Backup_Job, CanBeCleanedWithoutAJob) {
  Test_Job job;
  job.backup.remove_storage_file();
  job.backup.clean();
  EXPECT_FALSE(job.backup.full());
  EXPECT_TRUE(job.log->asserted("channel_factory_.get() is NULL"));
  job.backup.clean();
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

TEST_F(Backup_Job, ShadowVolumeNamesTheSource) {
  ::mkdir((tree / "snap").c_str(), 0700);
  ::mkdir((tree / "snap/d").c_str(), 0700);
  const std::map<std::string, std::string> volume_map{{"X:", tree / "snap"}};
  Test_Job job;
  job.volume_map = &volume_map;
  ASSERT_TRUE(job.run("X:\\d"));
  EXPECT_EQ(test_support::catalog_entries(job.catalog()), (Texts{"VOLB X:", "DIRB d\\", "FEND"}));
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

TEST(Unreadable, FilesAndDirectoriesAreNamedAndCounted) {
  const As_Nobody nobody;
  const test_support::Temp_Dir tree;
  platform::Volume_Roots::instance().set("X:", tree.path());
  for (const char* dir : {"closed", "blind"}) ::mkdir((tree / dir).c_str(), 0700);
  for (const char* file : {"a", "b", "blind/f"}) write_file(tree / file, "x");
  ::chmod((tree / "a").c_str(), 0);
  ::chmod((tree / "closed").c_str(), 0);
  ::chmod((tree / "blind").c_str(), 0400);  // lists names but opens nothing
  {
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
  }
  ::chmod((tree / "closed").c_str(), 0700);
  ::chmod((tree / "blind").c_str(), 0700);
  platform::Volume_Roots::instance().clear();
}

// Files that change between the walk and the last byte, from inside the storage.
class Changing : public Backup_Job {
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
  EXPECT_EQ(stream(job.media(), "STAN"), std::string(200000, 'y'));
  EXPECT_EQ(media_order(job.media()),
            "TAPE SSET META VOLB FILE STAN CSUM CTEX ESET TFDD TSMP ESET EOTM");
  EXPECT_EQ(job.backup.err_code(), 0U);
}

TEST_F(Changing, AFileThatIsUnlinkedWhileOpenIsWhole) {
  EXPECT_TRUE(run("FILE", [this] { ::unlink(file.c_str()); }));
  EXPECT_EQ(stream(job.media(), "STAN"), std::string(200000, 'x'));
  EXPECT_EQ(test_support::catalog_entries(job.catalog()), (Texts{"VOLB X:", "FILE f", "FEND"}));
}

TEST_F(Changing, AFileThatShrinksIsFilledUpAndNamed) {
  for (unsigned short method : {0, 1, 2}) {
    Test_Job other;
    write_file(file, std::string(200000, 'x'));
    other.compression = method;
    other.storage.on_write = [this](const char* data, unsigned long long size) {
      if (size > 50 && std::string(data, 4) == "FILE") {
        EXPECT_EQ(::truncate(file.c_str(), 70000), 0);
      }
    };
    EXPECT_TRUE(other.run("X:\\f"));
    const std::string media = other.media();
    EXPECT_EQ(media_order(media), "TAPE SSET META VOLB FILE STAN CFIL ESET TFDD TSMP ESET EOTM");
    if (method == 0) {
      EXPECT_EQ(stream(media, "STAN"), std::string(70000, 'x') + std::string(130000, '\0'));
    }
    for (const auto& item : media_items(media)) {
      if (item.id == "CFIL") {
        EXPECT_EQ(number(media, item.at + 52, 4), 0x10000U);
        EXPECT_EQ(number(media, item.at + 64, 8), 70000U);
        EXPECT_EQ(number(media, item.at + 72, 2), 1U);
      }
      if (item.id == "ESET") {
        EXPECT_EQ(number(media, item.at + 52, 4), method == 0 ? 4U : 6U);
        EXPECT_EQ(number(media, item.at + 56, 4), 1U);
      }
      const bool may_be_compressed = item.id == "SSET" || item.id == "VOLB" || item.id == "FILE";
      if (may_be_compressed) {
        EXPECT_EQ(number(media, item.at + 4, 2), method == 0 ? 0U : 2U);
      }
    }
    EXPECT_EQ(test_support::catalog_entries(other.catalog()), (Texts{"VOLB X:", "FEND"}));
    EXPECT_EQ(other.events.texts(event_corrupt),
              (Texts{R"({"message":"length changed","name":"X:\\f","type":"file"})"}));
    EXPECT_EQ(other.backup.err_code(), 0U);
  }
}

TEST_F(Changing, TheOnlyFileThatVanishesFailsTheJob) {
  EXPECT_FALSE(run("VOLB", [this] { ::unlink(file.c_str()); }));
  EXPECT_EQ(job.backup.err_code(), 13U);
  EXPECT_EQ(job.events.texts(event_skipped),
            (Texts{R"({"errno":2,"message":"Failed to stat file","name":"X:\\f","type":"file"})"}));
  EXPECT_EQ(job.log->count("128 0 dirs and 1 files skipped, but no file backuped up.\n"), 1);
  ASSERT_EQ(job.events.all(event_summary).size(), 1U);
  EXPECT_EQ(job.events.all(event_summary)[0].at("skipped_files"), 1);
  EXPECT_EQ(media_order(job.media()), "TAPE SSET META VOLB ESET TFDD TSMP ESET EOTM");
}

TEST_F(Changing, ADirectoryThatVanishesIsNamed) {
  ::mkdir((tree / "d").c_str(), 0700);
  job.backup.add_source("X:\\d");
  EXPECT_TRUE(run("VOLB", [this] { ::rmdir((tree / "d").c_str()); }));
  EXPECT_EQ(job.backup.err_code(), 14U);
  EXPECT_EQ(job.events.texts(event_skipped),
            (Texts{R"({"errno":2,"message":"Open failed","name":"X:\\d","type":"dir"})"}));
}

}  // namespace
