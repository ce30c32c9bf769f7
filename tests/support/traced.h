// Programs whose system calls are watched, or made to fail.
#pragma once

#include <string>
#include <vector>

#include "tests/support/process.h"

namespace test_support {

// The sanitizers slow a program down so much that a long test can do less.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool is_sanitized = true;
#else
constexpr bool is_sanitized = false;
#endif

// False where the machine doesn't let one process watch another.
bool can_trace();

// `command` under strace with `options`; what is watched goes to the file `to`.
Arguments traced(const Arguments& options, const std::string& to, const Arguments& command);

// A call in a trace, whole even if other threads ran in its middle.
struct Traced_Call {
  std::string text;   // "name(arguments) = result"
  std::size_t begin;  // of the lines of the trace, where it started and where it had ended
  std::size_t end;
};

// The calls in the trace of traced(), in the order in which they ended.
std::vector<Traced_Call> calls_in(const std::string& trace);

}  // namespace test_support
