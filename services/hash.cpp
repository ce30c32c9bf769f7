#include "services/hash.h"

#include <xxhash.h>

namespace MTF {

std::function<unsigned int(const std::string&)> get_hash_func(Hash_Algorithm_Type type) {
  if (type != hash_xxh32) return {};
  return [](const std::string& path) -> unsigned int { return XXH32(path.data(), path.size(), 0); };
}

const char* hash_algorithm_vale_to_name(Hash_Algorithm_Type type) {
  return type == hash_xxh32 ? "xxh32" : "";
}

}  // namespace MTF
