// The catalog of one media, as the writers see it.
#pragma once

#include <ace/Copy_Disabled.h>

#include <string>

#include "mtf/writer/backup_option.h"
#include "mtf/writer/catalog_stream.h"

namespace MTF {

// Finds the place of the file and passes every operation on to its Catalog_Stream, which tells what
// each does. Used by one thread.
class Catalog_Writer : private ACE_Copy_Disabled {
 public:
  explicit Catalog_Writer(const Backup_Option& opt);

  // Starts the file of `channel` in the job's temporary directory.
  bool open(unsigned long long channel);

  bool add_tape_blk(const Tape_Blk& blk) { return stream_.add_tape_blk(blk); }
  bool add_meta_stream(const Metadata_Stream& stream) { return stream_.add_meta_stream(stream); }
  bool add_sset_blk(const SSet_Blk& blk) { return stream_.add_sset_blk(blk); }
  bool add_vol_blk(const Vol_Blk& blk) { return stream_.add_vol_blk(blk); }
  bool add_dir_blk(const Dir_Blk& blk, unsigned long long space, const std::string& name) {
    return stream_.add_dir_blk(blk, space, name);
  }
  bool add_file_blk(const File_Blk& blk, unsigned long long space, unsigned long long ino,
                    unsigned short flags, const std::string& name) {
    return stream_.add_file_blk(blk, space, ino, flags, name);
  }
  bool add_slnk_blk(const SLnk_Blk& blk, unsigned long long space, unsigned long long ino,
                    unsigned short flags, const std::string& name) {
    return stream_.add_slnk_blk(blk, space, ino, flags, name);
  }
  bool add_hlnk_blk(const HLnk_Blk& blk, unsigned long long space, unsigned long long ino,
                    unsigned short flags, const std::string& name) {
    return stream_.add_hlnk_blk(blk, space, ino, flags, name);
  }
  bool add_devb_blk(const Devb_Blk& blk, unsigned long long space, unsigned long long ino,
                    unsigned short flags, const std::string& name) {
    return stream_.add_devb_blk(blk, space, ino, flags, name);
  }
  bool add_pdat_blk(const PDat_Blk& blk, const std::string& name) {
    return stream_.add_pdat_blk(blk, name);
  }
  bool add_cfil_blk(const CFil_Blk& blk) { return stream_.add_cfil_blk(blk); }
  bool add_eset_blk(const ESet_Blk& blk) { return stream_.add_eset_blk(blk); }

  bool add_cat_vol_blk(const Cat_Vol_Blk& blk) { return stream_.add_cat_vol_blk(blk); }
  bool add_cat_dir_blk(const Cat_Dir_Blk& blk) { return stream_.add_cat_dir_blk(blk); }
  bool add_cat_file_blk(Cat_File_Blk& blk) { return stream_.add_cat_file_blk(blk); }
  bool add_cat_slnk_blk(Cat_SLnk_Blk& blk) { return stream_.add_cat_slnk_blk(blk); }
  bool add_cat_hlnk_blk(Cat_HLnk_Blk& blk) { return stream_.add_cat_hlnk_blk(blk); }
  bool add_cat_devb_blk(Cat_Devb_Blk& blk) { return stream_.add_cat_devb_blk(blk); }
  bool add_cat_pdat_blk(Cat_PDat_Blk& blk) { return stream_.add_cat_pdat_blk(blk); }

  bool end() { return stream_.end(); }

  // Copies the finished catalog to the writer.
  bool write(IWriter& writer) { return stream_.write(writer) != -1; }

  const Cat_Summary& summary() const { return stream_.summary(); }
  void set_storage_size(unsigned long long size) { stream_.set_storage_size_to_summary(size); }
  void set_seq(unsigned short seq) { stream_.set_seq(seq); }

 private:
  Catalog_Stream stream_;
  const std::string job_tmp_dir_;
  const std::string option_path_;
  const std::string minor_resource_id_;
  std::string path_;
};

}  // namespace MTF
