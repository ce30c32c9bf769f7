#include "platform/process.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace platform {
namespace {

constexpr int start_field = 22;  // of /proc/PID/stat, counted from 1
constexpr int first_field_behind_name = 3;

}  // namespace

unsigned int current_process() {
  return static_cast<unsigned int>(::getpid());
}

bool process_start(unsigned int process, unsigned long long& ticks) {
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  std::string line;
  if (!std::getline(file, line)) return false;
  // The name may hold anything, closing brackets too.
  std::istringstream rest(line.substr(line.rfind(')') + 1));
  std::string field;
  for (int at = first_field_behind_name; at <= start_field; ++at) rest >> field;
  ticks = std::strtoull(field.c_str(), nullptr, 10);
  return ticks != 0;
}

std::string process_space() {
  std::ifstream file("/proc/sys/kernel/random/boot_id");
  std::string boot;
  char space[64];
  const ssize_t length = ::readlink("/proc/self/ns/pid", space, sizeof space);
  if (!std::getline(file, boot) || length <= 0) return {};
  return boot + ' ' + std::string(space, static_cast<std::size_t>(length));
}

}  // namespace platform
