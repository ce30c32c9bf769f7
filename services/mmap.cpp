#include "services/mmap.h"

#include <algorithm>
#include <cerrno>

#include "services/local_failure.h"

namespace MTF {
namespace {

constexpr unsigned long long max_piece = 1ULL << 20;

}  // namespace

bool MMap::map(const char* path, unsigned long long size) {
  path_ = path;
  return mapping_.create(path_, keep_name_) ? remap(size) : local_failure("make", path_);
}

bool MMap::remap(unsigned long long size) {
  return mapping_.grow(size) || local_failure("extend", path_);
}

long long MMap::write(IWriter& writer, unsigned long long block_size, unsigned long long length) {
  if (length > mapping_.size()) {
    errno = EINVAL;
    return -1;
  }
  const bool fits = block_size > 0 && block_size <= max_piece;
  const unsigned long long piece = fits ? max_piece / block_size * block_size : max_piece;
  for (unsigned long long at = 0; at < length;) {
    const unsigned long long size = std::min(piece, length - at);
    if (writer.write(mapping_.data() + at, size) != size) return -1;
    at += size;
  }
  return static_cast<long long>(length);
}

}  // namespace MTF
