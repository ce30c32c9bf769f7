#include "platform/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

namespace platform {

bool stdout_is_terminal() {
  return ::isatty(STDOUT_FILENO) == 1;
}

bool stderr_is_terminal() {
  return ::isatty(STDERR_FILENO) == 1;
}

unsigned int stderr_width() {
  constexpr unsigned int usual = 80;
  winsize size{};
  if (::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return usual;
  return size.ws_col;
}

}  // namespace platform
