// Single blocks of a media, wherever they stand.
#pragma once

#include <string>

#include "mtf/reader/media_walker.h"

namespace MTF {

// Loads the block at `position` into `bytes`, over which `block` is then a view. False if no sound
// block of a known type stands there.
bool load_block(Piece_Window& window, unsigned long long position, std::string& bytes,
                Media_Block& block);

// The name of a VOLB, DIRB or file-like block: its own, or that in its name stream. Empty if it
// can't be read.
std::string name_of(Piece_Window& window, const Media_Block& block);

}  // namespace MTF
