// Programs run as their users run them.
#pragma once

#include <sys/resource.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace test_support {

using Arguments = std::vector<std::string>;

constexpr uid_t nobody = 65534;

struct Output {
  int code;  // -1 if a signal ended the program
  std::string out;
  std::string err;
};

// What a program is held to.
struct Limits {
  rlim_t file_size = RLIM_INFINITY;
  bool as_nobody = false;   // needs root
  bool old_kernel = false;  // without openat2
};

// One run of a program. Its output goes to files without a name, so nothing is left of it.
class Process {
 public:
  // `arguments` starts with the program's path.
  explicit Process(Arguments arguments, const Limits& limits = {});
  // Ends a program that still runs.
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  void signal(int number) const;

  // True once the program has ended; doesn't wait.
  bool has_ended();

  Output finish();

 private:
  using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

  [[noreturn]] void become(Arguments& arguments, const Limits& limits) const;

  File out_, err_;
  pid_t child_;
  bool ended_ = false;
  int status_ = 0;
};

Output run(const Arguments& arguments, const Limits& limits = {});

// Asks every millisecond, for a minute at most; true once `condition` holds.
template <class Condition>
bool wait_until(Condition condition) {
  for (int i = 0; i < 60000; ++i) {
    if (condition()) return true;
    ::usleep(1000);
  }
  return false;
}

bool is_root();

}  // namespace test_support
