// Where exceptions end: none leaves a thread of a job or travels to the host.
#pragma once

#include <exception>

namespace MTF {

// The line of an exception; `who` begins it. For bad_alloc errno is 12 afterwards, else 5.
void log_exception(const char* who, const std::exception& error) noexcept;
// The same for one that tells nothing of itself.
void log_unknown_exception(const char* who) noexcept;

// What `step` returns, or `failed`, with errno, if an exception left it.
template <class Result, class Step>
Result no_throw(const char* who, Result failed, Step step) noexcept {
  try {
    return step();
  } catch (const std::exception& error) {
    log_exception(who, error);
    return failed;
  } catch (...) {
    log_unknown_exception(who);
    return failed;
  }
}

}  // namespace MTF
