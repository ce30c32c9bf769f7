// The parts of a system path: volume, directory, name.
#pragma once

#include <cstddef>
#include <string>

#include "oxbase/path.h"

namespace MTF_FS {

// True for a string of slashes alone, and for two characters, of which the second is a colon,
// with nothing but backslashes behind them.
bool is_root_path(const std::string& path);

// Splits the path of a directory: `/\home\me` gives the volume `/` and the directory `home\me\`,
// without a leading and with a trailing separator, empty for the volume itself. The volume is a
// root path. False, with the results untouched, for a path that begins with none.
bool path_component(const std::string& path, char separator, std::string& volume, std::string& dir);

// Splits the path of a file: `/\home\me` gives `/`, `home\` and the name `me`. False also for a
// path without a name.
bool path_component(const std::string& path, char separator, std::string& volume, std::string& dir,
                    std::string& name);

// The path of the entry `name` of the directory `dir`.
std::string entry_path(const std::string& dir, const std::string& name);

// The length of the leading directories that both share, with the separator behind them, where
// both are directories like `a\b\`. What stands in `wanted` behind it are the directories whose
// blocks are still missing when the last block was that of `current`. On the way back to an
// ancestor of `current` that is the ancestor itself: its block must come again, as a file belongs
// to the last directory block. Nothing is missing where both are equal.
std::size_t common_parent(const std::string& current, const std::string& wanted);

// Puts `volume`, a volume or a native directory such as a mounted snapshot, in place of the volume
// of a system path. False, with errno, if that gives no path.
bool replace_volume(const std::string& path, const std::string& volume, oxbase::Path_T<char>& out);

// The path of a directory, or of a file in it, under `shadow_vol` where that isn't empty, else
// under `cur_vol`. False, with errno, if that gives no path.
bool replace_volume(const std::string& cur_vol, const std::string& cur_dir,
                    const std::string& shadow_vol, oxbase::Path_T<char>& out);
bool replace_volume(const std::string& cur_vol, const std::string& cur_dir, const std::string& name,
                    const std::string& shadow_vol, oxbase::Path_T<char>& out);

}  // namespace MTF_FS
