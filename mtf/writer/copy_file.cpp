#include <exception>

#include "mtf/writer/dblk_writer.h"
#include "oxbase/ifstreambuf.h"
#include "services/local_failure.h"

namespace MTF {
namespace {

constexpr unsigned long long read_ahead_size = 8192;
constexpr unsigned int channel_write_size = 65536;
constexpr int mode_read = 0;

long long failed(const std::string& path) {
  local_failure("read", path);
  return -1;
}

}  // namespace

long long copy_file(const std::string& path, IWriter& writer) {
  oxbase::ACE_ifstreambuf file(read_ahead_size);
  if (file.open(path.c_str(), mode_read) != 0) return failed(path);
  Buffer buffer(8);
  if (!buffer.expand(channel_write_size)) return -1;
  long long total = 0;
  for (;;) {
    const long long count = file.sgetn(buffer.data(), buffer.capacity());
    if (count < 0) return failed(path);
    if (count == 0) return total;
    total += count;
    buffer.size(static_cast<unsigned int>(count));
    if (writer.write(buffer.data(), buffer.size()) != buffer.size()) return -1;
  }
}

}  // namespace MTF
