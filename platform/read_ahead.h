// Reads that are made ahead of need.
#pragma once

#include <string>

namespace platform {

// What the calls of this thread have had to read from disks so far, in bytes; what the cache holds
// costs nothing. It stays 0 on a system that doesn't count it.
unsigned long long disk_reads_of_thread();

// Asks the kernel to read `size` bytes from `offset` of an open file, without waiting for them.
void read_ahead(int fd, unsigned long long offset, unsigned long long size);

// Asks the kernel to read up to `most` bytes from the start of a file of the sources, by its system
// path, and the attributes that it has. Doesn't wait for the content, and passes over what isn't a
// regular file that can be opened at once.
void read_file_ahead(const std::string& system_path, unsigned long long most);

}  // namespace platform
