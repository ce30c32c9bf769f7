// How much of mapped files this process holds in memory.
#pragma once

#include <fstream>
#include <string>

namespace test_support {

// Bytes, of files on a disk and of those in memory.
inline unsigned long long mapped_memory() {
  std::ifstream status("/proc/self/status");
  unsigned long long kib = 0, sum = 0;
  for (std::string key; status >> key; status.ignore(4096, '\n')) {
    if ((key == "RssFile:" || key == "RssShmem:") && status >> kib) sum += kib * 1024;
  }
  return sum;
}

}  // namespace test_support
