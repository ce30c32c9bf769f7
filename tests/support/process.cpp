#include "tests/support/process.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace test_support {
namespace {

std::string content(std::FILE* file) {
  std::string text;
  char block[65536];
  off_t at = 0;
  ssize_t taken;
  while ((taken = ::pread(::fileno(file), block, sizeof block, at)) > 0) {
    text.append(block, static_cast<std::size_t>(taken));
    at += taken;
  }
  return text;
}

bool drop_root() {
  return ::setgroups(0, nullptr) == 0 && ::setgid(nobody) == 0 && ::setuid(nobody) == 0;
}

// From here on openat2 isn't known to the process and those that it becomes.
bool hide_openat2() {
  sock_filter steps[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat2, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog program = {sizeof steps / sizeof *steps, steps};
  return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

}  // namespace

Process::Process(Arguments arguments, const Limits& limits)
    : out_(std::tmpfile(), std::fclose), err_(std::tmpfile(), std::fclose), child_(::fork()) {
  if (child_ == 0) become(arguments, limits);
  EXPECT_NE(child_, -1);
}

Process::~Process() {
  if (has_ended()) return;
  signal(SIGKILL);
  ::waitpid(child_, &status_, 0);
}

void Process::become(Arguments& arguments, const Limits& limits) const {
  std::vector<char*> pointers;
  for (std::string& each : arguments) pointers.push_back(&each[0]);
  pointers.push_back(nullptr);
  ::signal(SIGINT, SIG_DFL);
  const rlimit size = {limits.file_size, limits.file_size};
  const bool ready = ::setrlimit(RLIMIT_FSIZE, &size) == 0 && (!limits.as_nobody || drop_root()) &&
                     (!limits.old_kernel || hide_openat2()) &&
                     ::dup2(::fileno(out_.get()), STDOUT_FILENO) != -1 &&
                     ::dup2(::fileno(err_.get()), STDERR_FILENO) != -1;
  if (ready) ::execv(pointers[0], pointers.data());
  ::_exit(127);
}

void Process::signal(int number) const {
  EXPECT_EQ(::kill(child_, number), 0);
}

bool Process::has_ended() {
  if (!ended_) ended_ = ::waitpid(child_, &status_, WNOHANG) == child_;
  return ended_;
}

Output Process::finish() {
  if (!ended_) ended_ = ::waitpid(child_, &status_, 0) == child_;
  EXPECT_TRUE(ended_);
  return {WIFEXITED(status_) ? WEXITSTATUS(status_) : -1, content(out_.get()), content(err_.get())};
}

Output run(const Arguments& arguments, const Limits& limits) {
  return Process(arguments, limits).finish();
}

bool is_root() {
  return ::geteuid() == 0;
}

}  // namespace test_support
