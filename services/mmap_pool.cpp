#include "services/mmap_pool.h"

#include <cerrno>

#include "services/local_failure.h"

namespace MTF {
namespace {

constexpr unsigned long long alignment = 8;

}  // namespace

void* MMap_Pool::calloc(unsigned long long n) {
  if (!mapping_.is_open() && !mapping_.create_in(directory_)) return no_room();
  // An empty request takes a place of its own, so that no two are at one address.
  const unsigned long long size = n ? (n + alignment - 1) / alignment * alignment : alignment;
  const unsigned long long end = used_ + size;
  if (size < n || end < used_) {
    errno = ENOMEM;
    return nullptr;
  }
  if (end > mapping_.size() && !mapping_.grow(end)) return no_room();
  void* const memory = mapping_.data() + used_;
  used_ = end;
  if (used_ - unloaded_at_ >= unload_step) unload();
  return memory;
}

void MMap_Pool::unload() {
  mapping_.unload();
  unloaded_at_ = used_;
}

// One line is enough for all requests that find no room.
void* MMap_Pool::no_room() {
  if (!told_) local_failure("extend", directory_);
  told_ = true;
  return nullptr;
}

}  // namespace MTF
