// Memory that runs out at a chosen place, in this program as a whole.
#pragma once

#include <functional>

namespace test_support {

// From now on the `n`-th piece of memory that any thread asks for isn't there, whether by new or by
// malloc. Pieces that are spared (spared.h) don't count.
void fail_memory(unsigned long n);

// Ends that. True if a piece was refused.
bool memory_failed();

// The addresses of the calls that led to the piece that was refused; returns how many.
int refused_call(void* const*& calls);

// Runs `body` with n from 1 on, each time in a process of its own, until all that it asked for was
// there. `body` calls fail_memory(n) in front of what it tests and returns what memory_failed()
// then says. The test fails if an expectation of `body` does, if an exception leaves it, if it
// leaks, crashes or hangs. Where a sanitizer makes it slow, only each `stride`-th n is tried, from
// a random one on.
void at_each_place(const std::function<bool(unsigned long n)>& body, unsigned long stride = 1);

}  // namespace test_support
