// The name of a chain of jobs, and the numbers of its jobs.
#pragma once

#include <cstddef>
#include <string>

namespace agent {

// The highest sequence number of a job: the blocks of a media hold it in 16 bits.
constexpr unsigned int last_seq = 65535;

// A stem is part of file names, in which a dot ends it: letters, digits, `_` and `-`, up to
// longest_stem of them. Returns what is wrong with `stem`, empty if nothing is.
constexpr std::size_t longest_stem = 200;
std::string stem_fault(const std::string& stem);

}  // namespace agent
