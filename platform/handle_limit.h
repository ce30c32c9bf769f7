// How many files a process may have open at once.
#pragma once

namespace platform {

// Raises the usual limit as far as the system lets this process.
void raise_handle_limit();

}  // namespace platform
