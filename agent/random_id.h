// Names that nothing else has.
#pragma once

#include <string>

namespace agent {

// 16 random hexadecimal digits.
std::string random_id();

}  // namespace agent
