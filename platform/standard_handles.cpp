#include "platform/standard_handles.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <initializer_list>

namespace platform {

void fill_standard_handles() {
  for (const int handle : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(handle, F_GETFD) >= 0 || errno != EBADF) continue;
    // open() gives the lowest free number, which is this one.
    const int opened = ::open("/dev/null", handle == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    if (opened < 0) return;
  }
}

}  // namespace platform
