// Memory that lives in a file, for what may outgrow the machine's.
#pragma once

#include <string>

#include "platform/mapping.h"

namespace MTF {

// Hands out memory that neither moves nor is given back before the pool goes. The file has no name.
// The caller locks. Memory that has been touched counts as the process's until it is
// unloaded, which happens to all of it each time that `unload_step` bytes have been handed out.
class MMap_Pool {
 public:
  // The pool's file is made in the native `directory` when memory is first asked for.
  explicit MMap_Pool(const std::string& directory) : directory_(directory) {}

  // `n` zero bytes, on a multiple of 8. Null with errno on failure, after which smaller requests
  // may still succeed.
  void* calloc(unsigned long long n);

  // Leaves all to the file until it is next touched, which others may do meanwhile.
  void unload();

  static constexpr unsigned long long unload_step = 1ULL << 23;

 private:
  void* no_room();

  std::string directory_;
  platform::Mapping mapping_;
  unsigned long long used_ = 0;
  unsigned long long unloaded_at_ = 0;
  bool told_ = false;
};

}  // namespace MTF
