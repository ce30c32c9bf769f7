// What the streams of a block say about owner, rights and extended attributes.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "mtf/reader/stream_check.h"

namespace MTF {

// Reads the data of a NACL stream: a self-relative security descriptor. False if its parts don't
// lie inside it. `known` tells whether it names owner (S-1-5-88-1-<uid>), group (S-1-5-88-2-<gid>)
// and mode (an entry of the DACL for S-1-5-88-3-<mode>), which are then in `out`.
bool read_security(std::string_view data, Stat_Extent& out, bool& known);

struct Extended_Attribute {
  std::string name;
  std::string_view value;  // in the data that it was read from
};

// Reads the data of a NTEA stream: FILE_FULL_EA_INFORMATION entries. False if they don't fit
// together.
bool read_attributes(std::string_view data, std::vector<Extended_Attribute>& out);

}  // namespace MTF
