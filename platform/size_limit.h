// The limit that a process may have on the size of its files.
#pragma once

namespace platform {

// From here on a write beyond the limit is an error of that write, EFBIG, and no signal, whose
// usual work is to end the process.
void size_limit_is_an_error();

}  // namespace platform
