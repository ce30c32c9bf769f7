#include "agent/text.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <system_error>

namespace agent {
namespace {

constexpr unsigned char delete_byte = 0x7F;

// U+0080 to U+009F as UTF-8: terminals take some of them for the start of a command.
bool starts_c1_control(const std::string& name, std::size_t at) {
  return static_cast<unsigned char>(name[at]) == 0xC2 && at + 1 < name.size() &&
         (static_cast<unsigned char>(name[at + 1]) & 0xE0) == 0x80;
}

std::string hex_escape(unsigned char byte) {
  char text[8];
  std::snprintf(text, sizeof text, "\\x%02x", byte);
  return text;
}

std::string escape(const std::string& text, bool backslashes) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte == '\\' && backslashes) {
      out += "\\\\";
    } else if (byte == '\n') {
      out += "\\n";
    } else if (byte == '\t') {
      out += "\\t";
    } else if (byte < ' ' || byte == delete_byte) {
      out += hex_escape(byte);
    } else if (starts_c1_control(text, i)) {
      out += hex_escape(byte) + hex_escape(static_cast<unsigned char>(text[++i]));
    } else {
      out += text[i];
    }
  }
  return out;
}

}  // namespace

std::string error_text(const std::string& object, int error) {
  return object + ": " + std::generic_category().message(error);
}

std::string size_text(unsigned long long bytes) {
  static constexpr const char* units[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  std::size_t unit = 0;
  double value = static_cast<double>(bytes);
  while (value >= 1024 && unit + 1 < sizeof units / sizeof *units) {
    value /= 1024;
    ++unit;
  }
  char text[32];
  std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", value, units[unit]);
  return text;
}

std::string date_text(long long seconds_since_1970) {
  const std::time_t time = seconds_since_1970;
  std::tm parts;
  if (!gmtime_r(&time, &parts)) return "-";
  char text[40];
  return std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts) != 0 ? text : "-";
}

std::string minute_text(long long seconds_since_1970) {
  return date_text(seconds_since_1970).substr(0, std::strlen("YYYY-MM-DD hh:mm"));
}

std::string duration_text(double seconds) {
  const auto whole = static_cast<unsigned long long>(seconds);
  char text[40];
  if (whole >= 3600) {
    std::snprintf(text, sizeof text, "%llu:%02llu:%02llu", whole / 3600, whole / 60 % 60,
                  whole % 60);
  } else {
    std::snprintf(text, sizeof text, "%llu:%02llu", whole / 60, whole % 60);
  }
  return text;
}

std::string escape_name(const std::string& name) {
  return escape(name, true);
}

std::string escape_controls(const std::string& text) {
  return escape(text, false);
}

std::string cleared_text(const std::vector<std::string>& names) {
  std::string text = "removed what a killed job left: ";
  for (const std::string& name : names)
    text += (&name == &names[0] ? "" : ", ") + escape_name(name);
  return text;
}

std::string count_text(unsigned long long count, const char* noun) {
  return std::to_string(count) + ' ' + noun + (count == 1 ? "" : "s");
}

std::string grouped_text(unsigned long long count) {
  std::string text = std::to_string(count);
  for (std::size_t at = text.size(); at > 3;) text.insert(at -= 3, 1, ',');
  return text;
}

std::string ranges_text(const std::vector<unsigned int>& numbers) {
  std::string text;
  for (std::size_t first = 0, last; first < numbers.size(); first = last + 1) {
    for (last = first; last + 1 < numbers.size() && numbers[last + 1] == numbers[last] + 1;) ++last;
    text += (text.empty() ? "" : ",") + std::to_string(numbers[first]);
    if (last != first) text += '-' + std::to_string(numbers[last]);
  }
  return text;
}

std::string directories_text(unsigned long long count) {
  return std::to_string(count) + (count == 1 ? " directory" : " directories");
}

}  // namespace agent
