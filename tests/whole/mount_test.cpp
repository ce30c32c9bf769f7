// Jobs as a file system.
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <future>
#include <memory>
#include <thread>

#include "tests/support/agent_run.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;

class Mounting : public Agent_Run {
 protected:
  Mounting() { fs::create_directory(at()); }
  ~Mounting() override { ::umount2(at().c_str(), MNT_DETACH); }

  std::string at(const std::string& path = {}) const { return dir_ / "mount" + path; }

  // Why nothing can be mounted here; empty if it can be.
  std::string fault() const {
    if (!is_root()) return "needs root";
    if (::access("/dev/fuse", R_OK | W_OK) != 0) return "there is no /dev/fuse here";
    if (::mount("none", at().c_str(), "tmpfs", 0, nullptr) != 0)
      return "mounts aren't allowed here";
    ::umount(at().c_str());
    return {};
  }

  void start() {
    agent_ = std::make_unique<Process>(on_storage("mount", {at()}));
    ASSERT_TRUE(wait_until([this] { return fs::exists(at("/latest")) || agent_->has_ended(); }));
  }

  Output stop() {
    agent_->signal(SIGTERM);
    return agent_->finish();
  }

  std::unique_ptr<Process> agent_;
};

TEST_F(Mounting, EachJobAsItWas) {
  if (!fault().empty()) GTEST_SKIP() << fault();
  make_hard_tree(source());
  make_sparse(source("/sparse"), 50000001);
  const Snapshot first = snapshot(source());
  ASSERT_EQ(save({"--compression", "zstd", "--channels", "2"}).code, 0);
  write_file(source("/names/new"), "new");
  const Snapshot second = snapshot(source());
  ASSERT_EQ(save({"--channels", "2"}, "incremental").code, 0);
  start();
  std::thread readers[4];
  for (std::thread& reader : readers) {
    reader = std::thread([&, early = &reader < readers + 2] {
      const Snapshot found = snapshot(at(early ? "/1" : "/latest") + source());
      EXPECT_EQ(difference(early ? first : second, found), "");
    });
  }
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(fs::read_symlink(at("/latest")), "2");
  const auto entries = std::distance(fs::directory_iterator(at()), fs::directory_iterator());
  EXPECT_EQ(entries, 5) << "each job, its date, and latest";
  EXPECT_EQ(::open(at("/1/new").c_str(), O_WRONLY | O_CREAT, 0600), -1);
  EXPECT_EQ(errno, EROFS);
  struct stat was {
  }, is{};
  EXPECT_EQ(::stat(source("/sparse").c_str(), &was), 0);
  EXPECT_EQ(::stat((at("/1") + source("/sparse")).c_str(), &is), 0);
  EXPECT_EQ(was.st_blocks, is.st_blocks);
  // A container that began meanwhile keeps a copy of every mount.
  std::promise<void> copied, over;
  std::thread container([&] {
    EXPECT_EQ(::unshare(CLONE_FS | CLONE_NEWNS), 0);
    EXPECT_EQ(::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
    copied.set_value();
    over.get_future().wait();
  });
  copied.get_future().wait();
  const Output ended = stop();
  over.set_value();
  container.join();
  EXPECT_EQ(ended.code, 0) << ended.err;
  EXPECT_EQ(ended.err, "");
  EXPECT_FALSE(fs::exists(at("/latest")));
}

TEST_F(Mounting, DamageIsAnErrorAndALine) {
  if (!fault().empty()) GTEST_SKIP() << fault();
  write_file(source("/bad\n"), "some text that is easy to find");
  write_file(source("/good"), "good");
  ASSERT_EQ(save().code, 0);
  const std::string piece = storage("demo.1.0.mtf");
  std::string bytes = read_file(piece);
  ++bytes[bytes.find("easy")];
  write_file(piece, bytes);
  start();
  const std::string top = at("/1") + source();
  const int file = ::open((top + "/bad\n").c_str(), O_RDONLY);
  ASSERT_GE(file, 0);
  char data[4];
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(::pread(file, data, sizeof data, 0), -1);
    EXPECT_EQ(errno, EIO);
  }
  EXPECT_EQ(read_file(top + "/good"), "good");
  // The file is open still, so the mount goes from its place alone.
  const Output ended = stop();
  ::close(file);
  EXPECT_EQ(ended.code, 0);
  EXPECT_FALSE(fs::exists(at("/1")));
  const Arguments lines = lines_of(ended.err);
  ASSERT_EQ(lines.size(), 2U) << ended.err;
  EXPECT_EQ(lines[0].compare(0, 8, "error: 1"), 0);
  EXPECT_NE(lines[0].find("/bad\\n: at "), std::string::npos) << lines[0];
  EXPECT_NE(lines[0].find("checksum of the stream's data is wrong"), std::string::npos);
  EXPECT_EQ(lines[1].compare(0, 10, "warning: /"), 0);
}

}  // namespace
