#include "services/file_space.h"

#include "platform/attributes.h"

namespace MTF_FS {

long long get_file_space(const wchar_t* path) {
  return platform::allocated_size(path);
}

}  // namespace MTF_FS
