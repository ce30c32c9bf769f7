// The way of a path from bytes to UTF-16 and back, without loss for any bytes.
//
// Bytes that are valid UTF-8 become their UTF-16 units. A byte 0xNN that is part of no valid
// sequence (overlong forms and encoded surrogates count as invalid) becomes the lone unit 0xDCNN.
#pragma once

#include <string>

namespace platform {

// The UTF-16 units of `utf8`, one to a wchar_t, surrogate pairs above 0xFFFF.
std::wstring to_utf16(const std::string& utf8);

// The bytes of `utf16`: from_utf16(to_utf16(s)) is s for every s. A lone surrogate outside 0xDC80
// to 0xDCFF, which to_utf16() never gives, is encoded like any other unit.
std::string from_utf16(const std::wstring& utf16);

}  // namespace platform
