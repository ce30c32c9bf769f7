#include "agent/engine_words.h"

#include <algorithm>
#include <cstring>

#include "agent/text.h"

namespace agent {
namespace {

bool is_digits(const std::string& line, std::size_t at, const char* pattern) {
  for (; *pattern != '\0'; ++pattern, ++at) {
    if (at >= line.size()) return false;
    const bool digit = line[at] >= '0' && line[at] <= '9';
    if (*pattern == '0' ? !digit : line[at] != *pattern) return false;
  }
  return true;
}

constexpr const char* date_pattern = "0000/00/00 00:00:00 ";

// Removes `start`, with the blanks behind it, from the beginning of `text`.
void drop_start(std::string& text, const char* start) {
  if (text.compare(0, std::strlen(start), start) != 0) return;
  text.erase(0, std::min(text.find_first_not_of(" :", std::strlen(start)), text.size()));
}

// Takes what may be a secret out of every address: all in front of the host and behind the path.
void drop_secrets(std::string& text) {
  for (std::size_t at = text.find("://"); at != std::string::npos; at = text.find("://", at)) {
    at += 3;
    std::size_t end = std::min(text.find_first_of(" \t\n\"'<>", at), text.size());
    const std::size_t query = text.find_first_of("?#", at);
    if (query < end) {
      text.replace(query, end - query, "?...");
      end = query;
    }
    const std::size_t host = text.rfind('@', end);
    if (host != std::string::npos && host >= at && host < end) text.erase(at, host + 1 - at);
  }
}

}  // namespace

std::string engine_words(const std::string& said) {
  std::string message;
  std::size_t at = 0;
  while (at < said.size()) {
    const std::size_t end = std::min(said.find('\n', at), said.size());
    const std::string line = said.substr(at, end - at);
    at = end + 1;
    if (is_digits(line, 0, date_pattern)) {
      message = line.substr(std::strlen(date_pattern));
    } else if (line.find_first_not_of(" \t") != std::string::npos) {
      message += (message.empty() ? "" : " ") + line.substr(line.find_first_not_of(" \t"));
    }
  }
  for (const char* level : {"CRITICAL", "ERROR", "NOTICE"}) drop_start(message, level);
  drop_secrets(message);
  return escape_controls(message);
}

}  // namespace agent
