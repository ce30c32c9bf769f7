#include "agent/random_id.h"

#include <cstdio>
#include <random>

namespace agent {

std::string random_id() {
  std::random_device random;
  char text[20];
  std::snprintf(text, sizeof text, "%08x%08x", random(), random());
  return text;
}

}  // namespace agent
