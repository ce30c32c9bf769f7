#include "platform/source_path.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <new>
#include <thread>

#include "platform/linkless_open.h"
#include "platform/source_root.h"

namespace platform {
namespace {

constexpr int directory_place = O_PATH | O_DIRECTORY;

// The directory below a source that a thread's last path was in.
struct Last_Directory {
  ~Last_Directory() { set(-1); }

  bool is(const std::string& path) const {
    return fd >= 0 && native == path && version == source_roots_version();
  }

  bool holds(const std::string& path, std::size_t slash) const {
    return fd >= 0 && path.size() > slash + 1 && native.size() == slash &&
           path.compare(0, slash, native) == 0 && version == source_roots_version();
  }

  // Has no directory until the path is copied: memory may run out in between.
  void change(const std::string& path, std::size_t size, unsigned long long roots) {
    set(-1);
    native.assign(path, 0, size);
    version = roots;
  }

  void set(int next) {
    if (fd >= 0) close_quietly(fd);
    fd = next;
  }

  int fd = -1;
  std::string native;
  unsigned long long version = 0;
};

// A slot that each thread has for itself. Where memory is short a `thread_local` object with a
// destructor would end the process.
struct Slot {
  Slot() : made(::pthread_key_create(&key, [](void* last) { forget(last); }) == 0) {}
  static void forget(void* last) { delete static_cast<Last_Directory*>(last); }

  pthread_key_t key;
  const bool made;
};

// Null where there is no room to keep one.
Last_Directory* last_directory() {
  static const Slot slot;
  if (!slot.made) return nullptr;
  auto* last = static_cast<Last_Directory*>(::pthread_getspecific(slot.key));
  if (last != nullptr) return last;
  last = new (std::nothrow) Last_Directory;
  if (last == nullptr || ::pthread_setspecific(slot.key, last) == 0) return last;
  delete last;
  return nullptr;
}

// Opens the directory that holds `real`.
int open_parent(const std::string& real) {
  const std::size_t slash = real.rfind('/');
  return open_without_links(slash == 0 ? "/" : real.substr(0, slash), directory_place);
}

int open_at_once(int dir, const char* rest, int flags) {
  int fd;
  do {
    fd = ::openat(dir, rest, flags | O_CLOEXEC);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

// How long the holder of a lease may take to give it back before the kernel takes it.
std::chrono::seconds lease_break_time() {
  constexpr std::chrono::seconds usual(45);
  std::ifstream setting("/proc/sys/fs/lease-break-time");
  int seconds = 0;
  return setting >> seconds && seconds > 0 ? std::chrono::seconds(seconds) : usual;
}

// An open that mustn't wait, for a FIFO's sake, fails on a file that somebody holds a lease on, and
// asks for it back. So the open is tried again until the lease is gone.
int open_at(int dir, const char* rest, int flags) {
  using Clock = std::chrono::steady_clock;
  int fd = open_at_once(dir, rest, flags);
  if (fd >= 0 || errno != EWOULDBLOCK) return fd;
  constexpr std::chrono::seconds spare(1);
  const Clock::time_point end = Clock::now() + lease_break_time() + spare;
  do {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    fd = open_at_once(dir, rest, flags);
  } while (fd < 0 && errno == EWOULDBLOCK && Clock::now() < end);
  return fd;
}

}  // namespace

Source_Path::Source_Path(const std::string& native) {
  const std::size_t slash = native.rfind('/');
  Last_Directory* const last = last_directory();
  if (last != nullptr && last->holds(native, slash)) {
    dir_ = last->fd;
    rest_ = native.c_str() + slash + 1;
    return;
  }
  const unsigned long long version = source_roots_version();
  std::string real;
  switch (find_source(native, real)) {
    case Place::outside:
      unguarded_.emplace(native);
      dir_ = unguarded_->dir();
      rest_ = unguarded_->rest();
      return;
    case Place::below_source:
      if (last != nullptr) {
        last->change(native, slash, version);
        last->set(open_parent(real));
        if (last->fd < 0) return;
        dir_ = last->fd;
        rest_ = native.c_str() + slash + 1;
        return;
      }
      [[fallthrough]];
    case Place::source:
      open_source(real);
  }
}

void Source_Path::open_source(const std::string& real) {
  dir_ = open_parent(real);
  owned_ = dir_ >= 0;
  if (!owned_) return;
  leaf_ = real == "/" ? "." : real.substr(real.rfind('/') + 1);
  rest_ = leaf_.c_str();
}

Source_Path::~Source_Path() {
  if (owned_) close_quietly(dir_);
}

int open_source(const std::string& native, int flags, bool follow) {
  const Last_Directory* const last = last_directory();
  if (last != nullptr && last->is(native)) {
    const int fd = open_at_once(last->fd, ".", flags);
    // A directory that may not be searched can't be opened by the name `.` in it.
    if (fd >= 0 || errno != EACCES) return fd;
  }
  const Source_Path path(native);
  if (!path.ok()) return -1;
  const bool no_follow = path.guarded() || !follow;
  return open_at(path.dir(), path.rest(), flags | (no_follow ? O_NOFOLLOW : 0));
}

int enter_source_directory(const std::string& native) {
  Last_Directory* const last = last_directory();
  const unsigned long long version = source_roots_version();
  std::string real;
  if (last == nullptr || find_source(native, real) == Place::outside) return -1;
  last->change(native, native.size(), version);
  last->set(open_without_links(real, directory_place));
  return last->fd;
}

int open_source_directory(const std::string& native, bool follow) {
  constexpr int flags = O_RDONLY | O_DIRECTORY;
  std::string real;
  if (find_source(native, real) != Place::outside) return open_without_links(real, flags);
  return open_path(native, flags | (follow ? 0 : O_NOFOLLOW));
}

}  // namespace platform
