#include "platform/data_extents.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace platform {

bool has_hole(int fd, long long size) {
  if (size == 0) return false;
  const off_t hole = ::lseek(fd, 0, SEEK_HOLE);
  return hole >= 0 && hole < size;
}

bool next_extent(int fd, long long from, long long size, Data_Extent& out) {
  out = {size, 0};
  if (from >= size) return true;
  const off_t data = ::lseek(fd, from, SEEK_DATA);
  if (data < 0 && errno != ENXIO) return false;
  if (data < 0) {
    // The file may have shrunk since its length was taken. The missing end isn't a hole.
    if (::lseek(fd, 0, SEEK_END) < size) out = {from, size - from};
    return true;
  }
  if (data >= size) return true;
  const off_t hole = ::lseek(fd, data, SEEK_HOLE);
  if (hole < 0 && errno != ENXIO) return false;
  const long long end = hole < 0 ? size : std::min<long long>(hole, size);
  out = {data, end - data};
  return true;
}

}  // namespace platform
