// The line that says which local file failed and why: what its users return says neither.
#pragma once

#include <ace/Log_Msg.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace MTF {

// Logs that `what`, such as "write", failed at the native path `path` for the reason in errno,
// which stays as it is. Always false.
inline bool local_failure(const char* what, const std::string& path) {
  const int error = errno;
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to %C local file, path=%C: %C\n"), what, path.c_str(),
             std::strerror(error)));
  errno = error;
  return false;
}

}  // namespace MTF
