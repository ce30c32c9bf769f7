#include "services/text.h"

#include "platform/utf16.h"
#include "services/bytes.h"

namespace MTF {

std::string corrupt_attr(unsigned int attributes) {
  static constexpr struct {
    unsigned int bit;
    const char* words;
  } table[] = {
      {corrupt_length_change, "length changed"},
      {corrupt_unreadable, "data could not be read"},
      {corrupt_in_use, "object was locked"},
  };
  std::string text;
  for (const auto& row : table) {
    if ((attributes & row.bit) == 0) continue;
    if (!text.empty()) text += ", ";
    text += row.words;
  }
  return text.empty() ? "unknown reason" : text;
}

std::string fdd_entry_type_string(unsigned int type) {
  if (type == block_slnk) return "SLNK";
  char letters[4];
  store_le(letters, type);
  for (char letter : letters) {
    if (letter < 'A' || letter > 'Z') return "unknown";
  }
  return std::string(letters, sizeof letters);
}

bool mtf_string_to_utf8(const void* begin, const void* end, unsigned char string_type,
                        std::string& out) {
  const char* first = static_cast<const char*>(begin);
  const char* last = static_cast<const char*>(end);
  if (string_type == string_bytes || first == last) {
    out.assign(first, last);
    return true;
  }
  if (string_type != string_unicode || (last - first) % 2 != 0) return false;
  std::wstring units;
  for (; first != last; first += 2) units += static_cast<wchar_t>(load_le<unsigned short>(first));
  out = platform::from_utf16(units);
  return true;
}

}  // namespace MTF
