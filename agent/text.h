// Words for people: sizes, dates, names, errors.
#pragma once

#include <string>
#include <vector>

namespace agent {

// "<object>: <the system's text of the errno `error`>".
std::string error_text(const std::string& object, int error);

// "1.5 GiB"; bytes below 1 KiB as "12 B".
std::string size_text(unsigned long long bytes);

// "2026-03-09 17:05:00" in UTC; "-" for 0, which stands for no date.
std::string date_text(long long seconds_since_1970);

// The same to the minute: "2026-03-09 17:05".
std::string minute_text(long long seconds_since_1970);

// "1:02:03" or "2:03".
std::string duration_text(double seconds);

// One name on one line, whatever bytes it holds: control characters as \n, \t or \xNN, a backslash
// as \\, all other bytes as they are. Two names never give the same text.
std::string escape_name(const std::string& name);

// A line of text with its control characters shown in the same way, and backslashes left alone.
std::string escape_controls(const std::string& text);

// "removed what a killed job left: NAME, NAME".
std::string cleared_text(const std::vector<std::string>& names);

// "1 file", "2 files".
std::string count_text(unsigned long long count, const char* noun);

// "1,234".
std::string grouped_text(unsigned long long count);

// Rising numbers as "1-3,5".
std::string ranges_text(const std::vector<unsigned int>& numbers);

// "1 directory", "2 directories".
std::string directories_text(unsigned long long count);

}  // namespace agent
