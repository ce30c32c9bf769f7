#include "mtf/writer/backup_source_lister_factory.h"

#include <cerrno>
#include <new>

#include "mtf/writer/backup_source_lister_mmap_impl.h"

namespace MTF {

std::unique_ptr<Backup_Source_Lister::Impl> Backup_Source_Lister_Factory::create(
    const std::string& kind, const std::string& cache_dir) {
  if (kind != "mmap") return nullptr;
  try {
    return std::make_unique<Backup_Source_Lister_MMap_Impl>(cache_dir);
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return nullptr;
  }
}

}  // namespace MTF
