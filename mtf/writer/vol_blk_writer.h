// Writes volumes (VOLB).
#pragma once

#include "mtf/catalog/catalog_helper.h"
#include "mtf/writer/dblk_writer.h"

namespace MTF {

// Every volume becomes the current one of its channel, which all directories and files behind it
// are read from and named relative to.
class Vol_Blk_Writer : public virtual DBLK_Writer {
 public:
  ~Vol_Blk_Writer() override = default;

  unsigned int type() const override { return block_volb; }
  bool reset(char* buf, unsigned int size) override;
  int write(IWriter& writer) override;

 private:
  bool set_vol_blk(Vol_Blk& blk);

  Cat_Vol_Blk cat_blk_;
  std::string device_name_;            // as the catalog block has it, NUL bytes included
  std::string printable_device_name_;  // with a backslash for each NUL byte
};

}  // namespace MTF
