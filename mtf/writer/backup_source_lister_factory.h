// Makes the store of the source lister.
#pragma once

#include <memory>
#include <string>

#include "mtf/writer/backup_source_lister.h"

namespace MTF {

class Backup_Source_Lister_Factory {
 public:
  // The kind "mmap" gives a store on a file in the native directory `cache_dir`; every other kind
  // gives null. Null with errno 12 when memory is short.
  static std::unique_ptr<Backup_Source_Lister::Impl> create(const std::string& kind,
                                                            const std::string& cache_dir);
};

}  // namespace MTF
