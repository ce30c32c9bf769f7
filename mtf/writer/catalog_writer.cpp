#include "mtf/writer/catalog_writer.h"

#include "services/working_path.h"

namespace MTF {

Catalog_Writer::Catalog_Writer(const Backup_Option& opt)
    : stream_(opt.base_fla, opt.format_logical_block_size, opt.physical_block_size,
              opt.option_flags),
      job_tmp_dir_(opt.job_tmp_dir),
      option_path_(opt.option_path),
      minor_resource_id_(opt.minor_resource_id) {}

bool Catalog_Writer::open(unsigned long long channel) {
  return cat_path(job_tmp_dir_, option_path_, minor_resource_id_, channel, path_) &&
         stream_.open(path_);
}

}  // namespace MTF
