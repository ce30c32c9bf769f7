#include "agent/json_text.h"

#include <map>

namespace agent {
namespace {

using json_spirit::Value;

bool is_utf8(const Value& text) {
  try {
    text.dump();
    return true;
  } catch (const Value::type_error&) {
    return false;
  }
}

std::string hex_of(const std::string& bytes) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string text;
  for (const char byte : bytes) {
    text += digits[static_cast<unsigned char>(byte) >> 4];
    text += digits[static_cast<unsigned char>(byte) & 0xF];
  }
  return text;
}

void add_bytes(Value& value) {
  std::map<std::string, std::string> bytes;
  for (auto item = value.begin(); item != value.end(); ++item) {
    if (item->is_structured()) {
      add_bytes(*item);
    } else if (value.is_object() && item->is_string() && !is_utf8(*item)) {
      bytes[item.key() + "_hex"] = hex_of(item->get<std::string>());
    }
  }
  for (const auto& [key, text] : bytes) value[key] = text;
}

}  // namespace

std::string json_text(const json_spirit::Value& value) {
  try {
    return value.dump();
  } catch (const Value::type_error&) {
    Value shown = value;
    add_bytes(shown);
    return shown.dump(-1, ' ', false, Value::error_handler_t::replace);
  }
}

}  // namespace agent
