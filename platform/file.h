// An open file.
#pragma once

#include <cstddef>
#include <string>

#include "platform/attributes.h"

namespace platform {

// One thread at a time. Every failure leaves its errno.
class File {
 public:
  File() = default;
  ~File();
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  // Opens a file of the sources for reading, by its system path, and looks at it. A link isn't
  // followed, and what isn't a regular file is refused with EINVAL, without waiting for anybody at
  // its other end. The file opened before is closed.
  bool open_read(const std::string& system_path);

  // Opens a working file of the job, by its native path: for reading, or created or emptied for
  // writing, with mode 0600 and not through a link.
  bool open_local_read(const std::string& native);
  bool open_local_write(const std::string& native);

  // Opens a file of any kind that the user names, by its native path. A named pipe is open at once,
  // whether or not there is somebody at its other end.
  bool open_input(const std::string& native);

  // One read of the system: the bytes read, 0 at the end, -1 on failure.
  long long read(char* data, std::size_t size);

  // Writes all of `size` bytes.
  bool write_all(const char* data, std::size_t size);

  // Moves the position, `whence` 0 from the start, 1 from the position, 2 from the end. Returns
  // the new position, -1 on failure.
  long long seek(long long offset, int whence);

  // True if nothing was open.
  bool close();

  bool is_open() const { return fd_ >= 0; }

  // The descriptor, -1 where nothing is open. It stays the object's.
  int handle() const { return fd_; }

  // What open_read() saw when it looked at the file.
  const File_Facts& facts() const { return facts_; }
  const _stat64& stat() const { return facts_.stat; }

 private:
  int fd_ = -1;
  File_Facts facts_;
  std::string native_;  // kept for its memory
};

// Waits, for `milliseconds` at most, until a read of `fd` needn't wait. True if it need not: there
// is data, the end, or a failure to tell.
bool wait_readable(int fd, int milliseconds);

}  // namespace platform
