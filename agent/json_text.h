// JSON lines of the program.
#pragma once

#include <string>

#include "services/json_spirit.h"

namespace agent {

// `value` on one line. A string that isn't UTF-8, such as a name, has U+FFFD in place of what is
// wrong; then its object also holds KEY_hex, its bytes in hexadecimal.
std::string json_text(const json_spirit::Value& value);

}  // namespace agent
