// A job over a file system on which a part of a file can't be read.
#include <fuse.h>
#include <sys/mount.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <thread>

#include "tests/support/agent_run.h"
#include "tests/support/media_bytes.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;

constexpr off_t size = 1 << 20;
constexpr off_t bad_from = 600001;

// A mounted file system with the files `bad` and `good` of 1 MiB of `x`, the latter listed twice;
// `bad` fails from byte 600001 on, and with `endless` the directory itself behind its last entry.
class Failing_File_System {
 public:
  explicit Failing_File_System(const std::string& at, bool endless = false)
      : at_(at), endless_(endless) {
    fuse_operations operations{};
    operations.init = start;
    operations.getattr = attributes;
    operations.readdir = list;
    operations.read = read;
    char name[] = "failing";
    char* arguments[] = {name, nullptr};
    fuse_args args = FUSE_ARGS_INIT(1, arguments);
    fuse_ = fuse_new(&args, &operations, sizeof operations, this);
    fuse_opt_free_args(&args);
    mounted_ = fuse_ != nullptr && fuse_mount(fuse_, at.c_str()) == 0;
    if (mounted_) server_ = std::thread([this] { fuse_loop(fuse_); });
  }
  ~Failing_File_System() {
    if (mounted_) ::umount2(at_.c_str(), MNT_DETACH);
    if (server_.joinable()) server_.join();
    if (mounted_) fuse_unmount(fuse_);
    if (fuse_ != nullptr) fuse_destroy(fuse_);
  }
  bool mounted() const { return mounted_; }

 private:
  // Nothing is kept, so that each read of the job comes here.
  static void* start(fuse_conn_info*, fuse_config* config) {
    config->direct_io = config->use_ino = 1;
    config->entry_timeout = config->attr_timeout = 0;
    return fuse_get_context()->private_data;
  }

  static int attributes(const char* path, struct stat* out, fuse_file_info*) {
    const bool root = std::strcmp(path, "/") == 0, bad = std::strcmp(path, "/bad") == 0;
    if (!root && !bad && std::strcmp(path, "/good") != 0) return -ENOENT;
    *out = {};
    out->st_ino = root ? 1 : bad ? 2 : 3;
    out->st_mode = root ? S_IFDIR | 0755 : S_IFREG | 0644;
    out->st_nlink = 1;
    out->st_size = root ? 0 : size;
    out->st_blocks = out->st_size / 512;
    return 0;
  }

  static int list(const char*, void* buffer, fuse_fill_dir_t fill, off_t offset, fuse_file_info*,
                  fuse_readdir_flags) {
    const auto* self = static_cast<Failing_File_System*>(fuse_get_context()->private_data);
    if (offset != 0) return self->endless_ ? -EIO : 0;
    for (const char* name : {"bad", "good", "good"}) {
      fill(buffer, name, nullptr, ++offset, fuse_fill_dir_flags(0));
    }
    return 0;
  }

  static int read(const char* path, char* data, std::size_t count, off_t offset, fuse_file_info*) {
    const bool bad = std::strcmp(path, "/bad") == 0;
    const off_t left = (bad ? bad_from : size) - offset;
    if (left <= 0) return bad ? -EIO : 0;
    count = std::min(count, static_cast<std::size_t>(left));
    std::memset(data, 'x', count);
    return static_cast<int>(count);
  }

  std::string at_;
  const bool endless_;
  fuse* fuse_ = nullptr;
  bool mounted_ = false;
  std::thread server_;
};

class Read_Error : public Agent_Run {};

TEST_F(Read_Error, LeavesACorruptFileAndAWholeJob) {
  const Failing_File_System failing(source());
  if (!failing.mounted()) GTEST_SKIP() << "no file system can be mounted here";
  for (const bool plain : {false, true}) {
    SCOPED_TRACE(plain);
    const Output saved = save(plain ? Arguments{"--json", "--plain"} : Arguments{"--json"});
    EXPECT_EQ(saved.code, 3);
    EXPECT_NE(saved.out.find("16777227"), std::string::npos) << saved.out;  // 0x100000B
    expect_verified();
    const std::string media = read_file(storage("demo.1.0.mtf"));
    const std::size_t cfil = media.find("CFIL");
    ASSERT_NE(cfil, std::string::npos);
    EXPECT_EQ(test::get_le(media, cfil + 52, 4), 0x20000u);
    EXPECT_EQ(test::get_le(media, cfil + 64, 8), static_cast<unsigned long long>(bad_from));
    EXPECT_EQ(test::get_le(media, cfil + 72, 2), plain ? 1u : 2u);
    ASSERT_EQ(run(on_storage("report", {"--html", dir_ / "page"})).code, 0);
    EXPECT_NE(read_file(dir_ / "page").find("<li><bdi class=\"path\">" + source("/bad") + "</bdi>"),
              std::string::npos);
    EXPECT_EQ(restore("to").code, 0);
    EXPECT_TRUE(read_file(back("/good")) == std::string(size, 'x'));
    EXPECT_FALSE(fs::exists(back("/bad")));
    for (const char* done : {"to", "storage"}) fs::remove_all(dir_ / done);
  }
}

// What may be missing of a directory is told in a job of each kind, and counts as skipped. What it
// gives twice is saved once, or no job could start from this one.
TEST_F(Read_Error, OfADirectoryIsNeverSilent) {
  write_file(dir_ / "other", "whole");
  const Failing_File_System failing(source(), true);
  if (!failing.mounted()) GTEST_SKIP() << "no file system can be mounted here";
  for (const char* threads : {"1", "2"}) {
    for (const char* command : {"full", "incremental"}) {
      SCOPED_TRACE(std::string(command) + threads);
      const Output saved =
          save({"--threads", threads, "--source", source(), "--source", dir_ / "other"}, command);
      EXPECT_EQ(saved.code, 3);
      EXPECT_NE(saved.out.find("skipped: 1 directory"), std::string::npos) << saved.out;
      EXPECT_NE(saved.err.find("source"), std::string::npos) << saved.err;
      expect_verified();
    }
    fs::remove_all(dir_ / "storage");
  }
}

}  // namespace
