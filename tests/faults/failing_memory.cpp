#include "tests/faults/failing_memory.h"

#include <execinfo.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <random>

#include "tests/support/temp_dir.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace test_support {
namespace {

constexpr unsigned longest_run = 120;  // seconds
constexpr int most_failures = 10;
enum Exit { as_it_should_be, not_as_it_should_be, memory_held };

// The calls that led to the piece that was refused.
void print_refused_call() {
  void* const* calls;
  const int depth = refused_call(calls);
  ::backtrace_symbols_fd(calls, depth, STDERR_FILENO);
}

void end_by_signal(int number) {
  print_refused_call();
  std::signal(number, SIG_DFL);
  std::raise(number);
}

[[noreturn]] void in_child(const std::function<bool(unsigned long)>& body, unsigned long n,
                           int output) {
  ::dup2(output, STDOUT_FILENO);
  ::dup2(output, STDERR_FILENO);
  for (const int number : {SIGSEGV, SIGABRT, SIGALRM}) std::signal(number, end_by_signal);
  ::alarm(longest_run);
  const auto faults = [] {
    return testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
  };
  const int before = faults();
  bool refused = true;
  try {
    refused = body(n);
  } catch (const std::exception& error) {
    memory_failed();
    ADD_FAILURE() << error.what() << " came out";
  }
  bool good = faults() == before;
#if defined(__SANITIZE_ADDRESS__)
  good = __lsan_do_recoverable_leak_check() == 0 && good;
#endif
  if (!good) print_refused_call();
  std::fflush(nullptr);
  ::_exit(!good ? not_as_it_should_be : refused ? as_it_should_be : memory_held);
}

// How the process for `n` ended: an Exit, or a signal as a negative number.
int run_child(const std::function<bool(unsigned long)>& body, unsigned long n,
              const std::string& output_path) {
  const int output = ::open(output_path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
  const pid_t child = ::fork();
  if (child == 0) in_child(body, n, output);
  int status = 0;
  const bool ended = child > 0 && ::waitpid(child, &status, 0) == child;
  ::close(output);
  if (!ended) return not_as_it_should_be;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace

void at_each_place(const std::function<bool(unsigned long)>& body, unsigned long stride) {
  unsigned long n = 1;
  if (stride > 1) {
    n += std::random_device()() % stride;
    std::printf("each %lu. place from %lu on\n", stride, n);
  }
  const Temp_Dir dir;
  std::string told;
  for (int failures = 0; failures < most_failures; n += stride) {
    std::fflush(nullptr);
    const int end = run_child(body, n, dir / "output");
    if (end == memory_held) break;
    if (end == as_it_should_be) continue;
    told += "memory fails at place " + std::to_string(n) + ": ended with " + std::to_string(end) +
            '\n' + read_file(dir / "output");
    ++failures;
  }
  std::printf("%lu places\n", n - 1);
  EXPECT_TRUE(told.empty()) << told;
}

}  // namespace test_support
