// What the streams of links say.
#pragma once

#include <string>
#include <string_view>

namespace MTF {

// Reads the data of a NTRP stream: the reparse data of a symbolic link. `target` is what it leads
// to, in native form. False if its parts don't fit together, or for another kind of reparse data.
bool read_symbolic_link(std::string_view data, std::string& target);

// The bits of a mode that tell what it is of.
constexpr unsigned long long mode_type_mask = 0xF000;

// True for the modes of devices and FIFOs.
constexpr bool is_node_mode(unsigned long long mode) {
  const unsigned long long type = mode & mode_type_mask;
  return type == 0x1000 || type == 0x2000 || type == 0x3000 || type == 0x6000;
}

// Reads the data of a LINK stream: `path` is the system path of the first name. False if it is
// none.
bool read_first_name(std::string_view data, std::string& path);

}  // namespace MTF
