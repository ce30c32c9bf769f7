// Jobs that are asked to stop. They have a minute for it, and need well below a second.
#include <fcntl.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/support/agent_run.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;

const Arguments first_job{"demo.1.0.cat", "demo.1.0.mtf"};

class Stop : public Agent_Run {
 protected:
  void SetUp() override {
    ASSERT_EQ(save().code, 0);
    media_ = read_file(storage("demo.1.0.mtf"));
  }

  // It ends in order, and nothing is left of it.
  void expect_stopped(Process& job) {
    ASSERT_TRUE(wait_until([&] { return job.has_ended(); }));
    const Output output = job.finish();
    EXPECT_EQ(output.code, 1);
    EXPECT_NE(output.err.find("error: the job was cancelled\n"), std::string::npos) << output.err;
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(pieces(), first_job);
    EXPECT_TRUE(read_file(storage("demo.1.0.mtf")) == media_);
    EXPECT_TRUE(fs::is_empty(dir_ / "tmp"));
  }

  void wait_for_piece(Process& job) {
    ASSERT_TRUE(wait_until([&] { return has_unfinished_piece() || job.has_ended(); }));
  }

  std::string media_;
};

// A second signal comes behind the first, before that one has done its work.
TEST_F(Stop, InTheMiddleOfALargeFile) {
  make_endless(source("/endless"));
  fs::create_directory(dir_ / "real");
  const std::string data = read_file(MTF_AGENT);
  std::ofstream real(dir_ / "real/file", std::ios::binary);
  for (std::size_t size = 0; size < 256 << 20; size += data.size()) real << data;
  real.close();
  const struct {
    int first, second;
    Arguments how;
  } cases[] = {
      {SIGINT, SIGTERM, {"--plain"}},
      {SIGTERM, SIGINT, {"--plain", "--channels", "3", "--compression", "zstd"}},
      {SIGTERM, SIGHUP, {"--plain", "--threads", "2", "--compression", "lz4", "--level", "12"}},
      {SIGTERM, SIGINT, {"--source", dir_ / "real"}},
      {SIGINT, SIGTERM, {"--source", dir_ / "real", "--compression", "zstd", "--level", "19"}},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.how.back());
    Process job(full(each.how));
    wait_for_piece(job);
    job.signal(SIGSTOP);
    for (const int signal : {each.first, each.second, SIGCONT}) job.signal(signal);
    expect_stopped(job);
  }
}

// The other end of a pipe may have nothing to say, or not be there at all.
TEST_F(Stop, WhileThePreActionDataIsAwaited) {
  const std::string fifo = dir_ / "fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  {
    Process job(full({"--pre-action", fifo}));
    wait_for_piece(job);
    job.signal(SIGINT);
    expect_stopped(job);
  }
  const int end = ::open(fifo.c_str(), O_RDWR);
  for (const bool piped : {false, true}) {
    Arguments arguments = full({"--pre-action", piped ? "-" : fifo});
    const std::string script = "exec \"$0\" \"$@\" < " + fifo;
    if (piped) arguments.insert(arguments.begin(), {"/bin/sh", "-c", script});
    ASSERT_EQ(::write(end, "some", 4), 4);
    Process job(arguments);
    int unread = 4;
    ASSERT_TRUE(wait_until([&] { return ::ioctl(end, FIONREAD, &unread) == 0 && unread == 0; }));
    job.signal(SIGTERM);
    job.signal(SIGINT);
    expect_stopped(job);
  }
  ::close(end);
}

}  // namespace
