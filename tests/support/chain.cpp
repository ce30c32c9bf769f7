#include "tests/support/chain.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string_view>

#include "platform/native_path.h"
#include "services/compression.h"
#include "tests/support/job_media.h"

namespace test_support {
namespace {

namespace fs = std::filesystem;

constexpr long long first_time = 1582979696;
constexpr long long changed_time = first_time + 60;
constexpr std::size_t shrinking_size = 150000;

void set_time(const std::string& path, long long mtime) {
  const timespec times[2] = {{0, UTIME_OMIT}, {mtime, 0}};
  EXPECT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

void put_file(const std::string& path, const std::string& content, long long mtime) {
  write_file(path, content);
  set_time(path, mtime);
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const Kind& kind) {
  return out << kind.channels << " channels, " << (kind.incremental ? "incremental" : "full")
             << (kind.records ? ", records" : ", plain") << ", " << kind.threads << " threads";
}

Chain::Chain() {
  platform::Volume_Roots::instance().set("X:", tree.path());
  std::string dir = tree / "s";
  for (char c = 'a'; c < 'f'; ++c) {
    fs::create_directory(dir);
    put_file(dir + "/" + c, std::string(c == 'a' ? 70001 : c - 'b', c), first_time);
    put_file(dir + "/same" + c, std::string(9, c), first_time);
    dir += "/" + std::string(250, c);
  }
  write_file(tree / "action", "before the job");
  EXPECT_TRUE(pre_action_.open_local_read(tree / "action"));
  reset_shrinking(first_time);
}

Chain::~Chain() {
  platform::Volume_Roots::instance().clear();
}

void Chain::reset_shrinking(long long mtime) const {
  const std::string path = tree / "s/shrinks";
  if (!fs::exists(path)) write_file(path, "");
  fs::resize_file(path, shrinking_size);
  set_time(path, mtime);
}

void Chain::start(const Kind& kind) {
  Test_Job job;
  job.compression = MTF::compression_lz4;
  job.backup.backup_read(kind.records);
  ASSERT_TRUE(job.run("X:\\s", kind.channels));
  earlier = job.storage.pieces;
  ASSERT_EQ(faults_of(earlier, 1, channel_numbers(kind.channels)), "");
  std::string dir = tree / "s";
  for (char c = 'a'; c < 'f'; ++c) {
    put_file(dir + "/" + c, std::string(c == 'a' ? 140003 : 20, c), changed_time);
    dir += "/" + std::string(250, c);
  }
}

void Chain::prepare(Test_Job& job, const Kind& kind) {
  reset_shrinking(changed_time);
  EXPECT_EQ(pre_action_.seek(0, SEEK_SET), 0);
  job.storage.pieces = earlier;
  job.compression = MTF::compression_lz4;
  job.threads = kind.threads;
  job.pre_action = reinterpret_cast<void*>(static_cast<std::intptr_t>(pre_action_.handle()));
  job.backup.backup_read(kind.records);
  job.storage.on_write = [this](const char* data, unsigned long long size) {
    // The block of a file goes to the media behind the look at its size.
    const std::string_view bytes(data, size);
    if (bytes.substr(0, 4) != "FILE" || bytes.find("shrinks") == bytes.npos) return;
    fs::resize_file(tree / "s/shrinks", shrinking_size / 2);
  };
  ASSERT_TRUE(job.init("X:\\s", kind.channels, 2));
}

bool Chain::run(Test_Job& job, const Kind& kind) {
  prepare(job, kind);
  return kind.incremental ? job.backup.incremental() : job.backup.full();
}

void Chain::expect_taken_back(Test_Job& job, const std::vector<std::string>& kept) const {
  job.backup.clean();
  EXPECT_TRUE(!fs::exists(job.cache_dir) || fs::is_empty(job.cache_dir));
  EXPECT_EQ(job.storage.released(), job.storage.made());
  job.backup.remove_storage_file();
  for (const std::string& name : kept) EXPECT_EQ(job.storage.pieces.erase(name), 1U) << name;
  EXPECT_TRUE(job.storage.pieces == earlier);
}

std::vector<unsigned long long> channel_numbers(unsigned channels) {
  std::vector<unsigned long long> numbers;
  if (channels == 1) return {0};
  for (unsigned n = 1; n <= channels; ++n) numbers.push_back(n);
  return numbers;
}

std::string faults_of(const std::map<std::string, std::string>& pieces, unsigned seq,
                      const std::vector<unsigned long long>& channels) {
  test::Memory_Store store;
  store.held = pieces;
  return test::told(test::verify(store, MTF::Job_Pieces{"j", seq, channels, true}));
}

}  // namespace test_support
