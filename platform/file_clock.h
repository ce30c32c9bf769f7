// The clock of the file systems.
#pragma once

namespace platform {

// The second since 1970 that a file would be given if it were written now. The kernel stamps files
// with a clock that may lag some milliseconds behind that of std::time(), into the second before.
// A file system on another machine has a clock of its own.
long long file_clock_second();

}  // namespace platform
