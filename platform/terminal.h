// What stands at the other end of standard output and standard error.
#pragma once

namespace platform {

bool stdout_is_terminal();
bool stderr_is_terminal();

// The columns of the terminal at standard error; 80 where it doesn't say.
unsigned int stderr_width();

}  // namespace platform
