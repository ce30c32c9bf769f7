// The configuration of a data set.
#pragma once

#include "mtf/common/sset_blk.h"

namespace MTF {

struct Data_Set_Conf {
  unsigned int backup_type = sset_normal_backup;  // the set's `sset_attributes`
  unsigned char software_major_version = 0;
  unsigned char software_minor_version = 0;
  unsigned char mtf_minor_version = 1;
  unsigned char media_catalog_version = 2;

  void normal_backup() { backup_type = sset_normal_backup; }
  void incremental_backup() { backup_type = sset_incremental_backup; }

  unsigned short compression_method() const { return compression_method_; }
  void compression_method(unsigned short method) { compression_method_ = method; }

 private:
  unsigned short compression_method_ = 0;
};

}  // namespace MTF
