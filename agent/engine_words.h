// What rclone says.
#pragma once

#include <string>

namespace agent {

// The last message in what rclone said, as one line: without its date, and without what may be a
// secret in an address.
std::string engine_words(const std::string& said);

}  // namespace agent
