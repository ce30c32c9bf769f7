#include "services/no_throw.h"

#include <ace/Log_Msg.h>
#include <ace/OS_NS_errno.h>

#include <new>

namespace MTF {

void log_exception(const char* who, const std::exception& error) noexcept {
  const bool short_memory = dynamic_cast<const std::bad_alloc*>(&error) != nullptr;
  try {
    if (short_memory) {
      ACE_ERROR((LM_ERROR, ACE_TEXT("%C is out of memory\n"), who));
    } else {
      ACE_ERROR((LM_ERROR, ACE_TEXT("%C failed: %C\n"), who, error.what()));
    }
  } catch (...) {
    // The host's log has failed as well.
  }
  errno = short_memory ? ENOMEM : EIO;
}

void log_unknown_exception(const char* who) noexcept {
  try {
    ACE_ERROR((LM_ERROR, ACE_TEXT("%C failed: unknown exception\n"), who));
  } catch (...) {
    // The host's log has failed as well.
  }
  errno = EIO;
}

}  // namespace MTF
