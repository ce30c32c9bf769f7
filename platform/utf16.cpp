#include "platform/utf16.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace platform {
namespace {

constexpr unsigned stray_base = 0xDC00;

bool is_high(unsigned unit) {
  return unit >= 0xD800 && unit <= 0xDBFF;
}
bool is_low(unsigned unit) {
  return unit >= 0xDC00 && unit <= 0xDFFF;
}

// The length of the leading run of ASCII bytes, looked at in words.
std::size_t ascii_run(const char* text, std::size_t size) {
  std::size_t at = 0;
  for (; at + sizeof(std::uint64_t) <= size; at += sizeof(std::uint64_t)) {
    std::uint64_t word;
    std::memcpy(&word, text + at, sizeof word);
    if (word & 0x8080808080808080ULL) break;
  }
  while (at < size && static_cast<unsigned char>(text[at]) < 0x80) ++at;
  return at;
}

// The length of the valid sequence of two to four bytes at `p`, with its code point; 0 if there is
// none. The bounds of the second byte keep out overlong forms, surrogates and all above 0x10FFFF.
unsigned decode(const unsigned char* p, std::size_t left, unsigned& code) {
  const unsigned lead = p[0];
  unsigned length, low = 0x80, high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
    code = lead & 0x1F;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    code = lead & 0x0F;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    code = lead & 0x07;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return 0;
  }
  if (left < length) return 0;
  for (unsigned i = 1; i < length; ++i) {
    if (p[i] < low || p[i] > high) return 0;
    code = code << 6 | (p[i] & 0x3F);
    low = 0x80;
    high = 0xBF;
  }
  return length;
}

void encode(unsigned code, std::string& out) {
  if (code < 0x80) {
    out += static_cast<char>(code);
    return;
  }
  if (code < 0x800) {
    out += static_cast<char>(0xC0 | code >> 6);
  } else {
    if (code < 0x10000) {
      out += static_cast<char>(0xE0 | code >> 12);
    } else {
      out += static_cast<char>(0xF0 | (code >> 18 & 0x07));
      out += static_cast<char>(0x80 | (code >> 12 & 0x3F));
    }
    out += static_cast<char>(0x80 | (code >> 6 & 0x3F));
  }
  out += static_cast<char>(0x80 | (code & 0x3F));
}

}  // namespace

std::wstring to_utf16(const std::string& utf8) {
  const std::size_t ascii = ascii_run(utf8.data(), utf8.size());
  std::wstring out(utf8.begin(), utf8.begin() + static_cast<std::ptrdiff_t>(ascii));
  if (ascii == utf8.size()) return out;
  out.reserve(utf8.size());
  const auto* p = reinterpret_cast<const unsigned char*>(utf8.data());
  for (std::size_t at = ascii; at < utf8.size();) {
    unsigned code = 0;
    const unsigned length = p[at] < 0x80 ? 0 : decode(p + at, utf8.size() - at, code);
    if (length == 0) {
      out += static_cast<wchar_t>(p[at] < 0x80 ? p[at] : stray_base + p[at]);
      ++at;
      continue;
    }
    if (code >= 0x10000) {
      out += static_cast<wchar_t>(0xD800 + ((code - 0x10000) >> 10));
      code = 0xDC00 + (code & 0x3FF);
    }
    out += static_cast<wchar_t>(code);
    at += length;
  }
  return out;
}

std::string from_utf16(const std::wstring& utf16) {
  unsigned all = 0;
  for (const wchar_t unit : utf16) all |= static_cast<unsigned>(unit);
  if (all < 0x80) return std::string(utf16.begin(), utf16.end());
  std::string out;
  out.reserve(utf16.size());
  for (std::size_t at = 0; at < utf16.size(); ++at) {
    unsigned unit = static_cast<unsigned>(utf16[at]);
    if (unit < 0x80) {
      out += static_cast<char>(unit);
    } else if (is_high(unit) && at + 1 < utf16.size() &&
               is_low(static_cast<unsigned>(utf16[at + 1]))) {
      const unsigned low = static_cast<unsigned>(utf16[++at]);
      encode(0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00), out);
    } else if (unit >= stray_base + 0x80 && unit <= stray_base + 0xFF) {
      out += static_cast<char>(unit - stray_base);
    } else {
      encode(unit, out);
    }
  }
  return out;
}

}  // namespace platform
