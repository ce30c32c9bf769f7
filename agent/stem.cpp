#include "agent/stem.h"

#include <algorithm>

#include "agent/text.h"

namespace agent {
namespace {

bool is_stem_byte(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '-';
}

}  // namespace

std::string stem_fault(const std::string& stem) {
  if (stem.empty()) return "the name is empty";
  if (stem.size() > longest_stem) {
    return "the name is longer than " + count_text(longest_stem, "character");
  }
  if (std::all_of(stem.begin(), stem.end(), is_stem_byte)) return {};
  return "the name '" + escape_name(stem) + "' holds more than letters, digits, '_' and '-'";
}

}  // namespace agent
