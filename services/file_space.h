// The space of a file on its disk.
#pragma once

namespace MTF_FS {

// The bytes allocated to the file at a system path, for a sparse file fewer than its size; -1 on
// failure.
long long get_file_space(const wchar_t* path);

}  // namespace MTF_FS
