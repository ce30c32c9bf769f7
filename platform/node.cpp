#include "platform/node.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/long_path.h"
#include "platform/native_path.h"
#include "platform/source_path.h"

namespace platform {
namespace {

// The target of the link that `fd` stands for.
int read_target(int fd, std::string& out) {
  char bytes[PATH_MAX];
  const ssize_t size = ::readlinkat(fd, "", bytes, sizeof bytes);
  if (size < 0) return errno;
  if (size == static_cast<ssize_t>(sizeof bytes)) return ENAMETOOLONG;
  out.assign(bytes, static_cast<std::size_t>(size));
  return 0;
}

}  // namespace

bool Node_Reader::read(const std::string& system_path, bool with_attributes, Node& out) {
  out.target.clear();
  out.attributes.clear();
  if (!native_path(system_path, native_)) return false;
  const int fd = open_source(native_, O_PATH);
  if (fd < 0) return false;
  struct stat st;
  int error = ::fstat(fd, &st) == 0 ? 0 : errno;
  if (error == 0 && S_ISLNK(st.st_mode)) error = read_target(fd, out.target);
  if (error == 0) {
    convert_stat(st, out.stat);
    out.allocated = static_cast<unsigned long long>(st.st_blocks) * S_BLKSIZE;
    if (with_attributes) attributes_.append(fd, out.attributes);
  }
  close_quietly(fd);
  errno = error;
  return error == 0;
}

}  // namespace platform
