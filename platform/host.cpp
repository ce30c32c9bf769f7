#include "platform/host.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <thread>
#include <vector>

#include "platform/long_path.h"
#include "platform/native_path.h"

namespace platform {
namespace {

constexpr unsigned int default_block_size = 4096;

bool is_id(unsigned long long id) {
  return id <= 0xFFFFFFFFULL || id >= 0xFFFFFFFF80000000ULL;
}

// Calls a lookup of the getpwuid_r family with memory that grows until the record fits. Throws
// bad_alloc where the lookup itself runs out of memory: a name that is there isn't left out.
template <class Record, class Lookup>
std::string name_of(unsigned long long id, Lookup lookup, char* Record::*name) {
  if (!is_id(id)) return {};
  std::vector<char> memory(1024);
  for (;;) {
    Record record;
    Record* found = nullptr;
    const int error =
        lookup(static_cast<unsigned int>(id), &record, memory.data(), memory.size(), &found);
    if (error == ERANGE && memory.size() < (1U << 20)) {
      memory.resize(memory.size() * 4);
    } else if (error == ENOMEM) {
      throw std::bad_alloc();
    } else if (error != EINTR) {
      return error == 0 && found ? found->*name : std::string();
    }
  }
}

}  // namespace

std::string machine_name() {
  char name[256] = "";
  if (::gethostname(name, sizeof name - 1) != 0) return {};
  return name;
}

std::string user_name(unsigned long long id) {
  return name_of(id, ::getpwuid_r, &passwd::pw_name);
}

std::string group_name(unsigned long long id) {
  return name_of(id, ::getgrgid_r, &group::gr_name);
}

bool filesystem_block_size(const std::string& system_path, unsigned int& size) {
  std::string native;
  if (!native_path(system_path, native)) return false;
  const int fd = open_path(native, O_PATH);
  if (fd < 0) return false;
  struct statvfs fs;
  const int result = ::fstatvfs(fd, &fs);
  close_quietly(fd);
  if (result != 0) return false;
  const unsigned long unit = fs.f_frsize ? fs.f_frsize : fs.f_bsize;
  const bool usable = unit != 0 && unit <= 0x80000000UL && (unit & (unit - 1)) == 0;
  size = usable ? static_cast<unsigned int>(unit) : default_block_size;
  return true;
}

unsigned int processor_count() {
  cpu_set_t set;
  if (::sched_getaffinity(0, sizeof set, &set) == 0) {
    return static_cast<unsigned int>(CPU_COUNT(&set));
  }
  const unsigned int count = std::thread::hardware_concurrency();
  return count ? count : 1;
}

unsigned int current_uid() {
  return ::geteuid();
}

Private_Files::Private_Files() : before_(::umask(0077)) {}

Private_Files::~Private_Files() {
  ::umask(static_cast<mode_t>(before_));
}

}  // namespace platform
