// The allocator of a program whose memory can run out. No sanitizer may look at this file: it runs
// before one is ready.
#include <dlfcn.h>
#include <execinfo.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>

#include "tests/faults/failing_memory.h"
#include "tests/support/spared.h"

// What stands behind the functions that this file takes the place of: those of the sanitizer's
// library, where there is one, or of the C library.
#define JOIN_(a, b) a##b
#define JOIN(a, b) JOIN_(a, b)
#define REAL(name) JOIN(MTF_REAL_ALLOCATOR, name)
extern "C" {
void* REAL(malloc)(std::size_t);
void* REAL(calloc)(std::size_t, std::size_t);
void* REAL(realloc)(void*, std::size_t);
void* REAL(memalign)(std::size_t, std::size_t);
}

namespace test_support {
namespace {

constexpr int deepest = 40;
std::atomic<bool> armed{false};
std::atomic<bool> failed{false};
std::atomic<unsigned long> left{0};
void* calls[deepest];
int depth = 0;

int (*real_getattr)(pthread_t, pthread_attr_t*) = nullptr;

void find_getattr() {
  if (real_getattr != nullptr) return;
  real_getattr = reinterpret_cast<decltype(real_getattr)>(::dlsym(RTLD_NEXT, "pthread_getattr_np"));
}

bool refused() {
  if (!armed.load(std::memory_order_relaxed) || Spared::here()) return false;
  if (left.fetch_sub(1) != 1) return false;
  const Spared spared;
  depth = ::backtrace(calls, deepest);
  failed = true;
  errno = ENOMEM;
  return true;
}

void* get(std::size_t size, std::size_t alignment) {
  if (refused()) return nullptr;
  return alignment == 0 ? REAL(malloc)(size) : REAL(memalign)(alignment, size);
}

void* get_or_throw(std::size_t size, std::size_t alignment) {
  void* const memory = get(size == 0 ? 1 : size, alignment);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

void fail_memory(unsigned long n) {
  void* first[1];
  ::backtrace(first, 1);  // loads what it needs
  find_getattr();         // not for a new thread to do, of which a sanitizer doesn't know yet
  failed = false;
  left = n;
  armed = true;
}

bool memory_failed() {
  armed = false;
  return failed;
}

int refused_call(void* const*& out) {
  out = calls;
  return depth;
}

}  // namespace test_support

using test_support::get;
using test_support::get_or_throw;

extern "C" {
void* malloc(std::size_t size) {
  return get(size, 0);
}
void* calloc(std::size_t count, std::size_t size) {
  return test_support::refused() ? nullptr : REAL(calloc)(count, size);
}
void* realloc(void* memory, std::size_t size) {
  return test_support::refused() ? nullptr : REAL(realloc)(memory, size);
}
void* memalign(std::size_t alignment, std::size_t size) {
  return get(size, alignment);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) {
  return get(size, alignment);
}
// The address sanitizer asks for it at the start of a thread and takes no failure.
int pthread_getattr_np(pthread_t thread, pthread_attr_t* attributes) {
  const test_support::Spared spared;
  test_support::find_getattr();
  return test_support::real_getattr(thread, attributes);
}
int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
  *memory = get(size, alignment);
  return *memory == nullptr ? ENOMEM : 0;
}
}

void* operator new(std::size_t size) {
  return get_or_throw(size, 0);
}
void* operator new[](std::size_t size) {
  return get_or_throw(size, 0);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  return get_or_throw(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
  return get_or_throw(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return get(size, 0);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return get(size, 0);
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return get(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return get(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, std::align_val_t) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept {
  std::free(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::align_val_t, const std::nothrow_t&) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, std::align_val_t, const std::nothrow_t&) noexcept {
  std::free(memory);
}
