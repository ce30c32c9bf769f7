#include "fuzz/local_file.h"

#include <ace/Log_Msg.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

namespace fuzz {

Local_File::Local_File(std::string_view bytes) : fd_(::memfd_create("fuzz", MFD_CLOEXEC)) {
  const ssize_t written = ::write(fd_, bytes.data(), bytes.size());
  if (written != static_cast<ssize_t>(bytes.size())) std::abort();
}

Local_File::~Local_File() {
  ::close(fd_);
}

}  // namespace fuzz

// Keeps the library's lines off the screen.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  ACE_LOG_MSG->clr_flags(ACE_Log_Msg::STDERR);
  return 0;
}
