// The handles 0, 1 and 2 that every program expects.
#pragma once

namespace platform {

// Opens the null device for each standard handle that is closed, so that no file of the program's
// own gets its number. Reading standard input then fails, and so does writing the others, as it did
// on the closed handle. Called first, before any thread runs.
void fill_standard_handles();

}  // namespace platform
