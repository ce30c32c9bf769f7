// The hash by which files are spread over the channels of a job.
#pragma once

#include <functional>
#include <string>

namespace MTF {

enum Hash_Algorithm_Type : unsigned short {
  hash_xxh32 = 0,  // xxHash32 of the path's bytes, seed 0
};

// The hash of a full path, such as `C:\dir\name`; empty for an unknown type.
std::function<unsigned int(const std::string&)> get_hash_func(Hash_Algorithm_Type type);

// The name under which a job's metadata records the hash; empty for an unknown type.
const char* hash_algorithm_vale_to_name(Hash_Algorithm_Type type);

}  // namespace MTF
