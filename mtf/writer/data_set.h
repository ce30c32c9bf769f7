// One data set on a media: SSET block, the blocks of the sources, ESET block.
#pragma once

#include <map>

#include "mtf/catalog/isrc_lister.h"
#include "mtf/writer/data_set_conf.h"
#include "mtf/writer/dblk_writer.h"
#include "services/event_handler.h"

namespace MTF {

class ESet_Blk;

// Used by one thread. Calling order: construct, register_dblk_writer for all writers, init, write.
class Data_Set {
 public:
  // All three must outlive the set; `evt_handler` may be null.
  Data_Set(const Data_Set_Conf& conf, ISrc_Lister& lister, Event_Handler* evt_handler);
  Data_Set(const Data_Set&) = delete;
  Data_Set& operator=(const Data_Set&) = delete;

  const Data_Set_Conf& conf() const { return conf_; }

  // Files `writer` under its type, in place of one that is there. True.
  bool register_dblk_writer(Ref_Ptr<DBLK_Writer> writer);

  // None of the arguments is owned.
  bool init(const Backup_Option* opt, Backup_Context* ctx, IMBC_Writer* writer,
            Catalog_Writer* cat);

  // Writes the set. A failed or cancelled set ends without its ESET block.
  bool write(IWriter& writer);

  bool write_sset(IWriter& writer);
  bool write_src(IWriter& writer);
  bool write_eset(IWriter& writer);

  // The writer for `block`, bound to it; null where there is none or it refuses the block.
  const Ref_Ptr<DBLK_Writer>& get_dblk_writer(Cat_Blk& block);

 private:
  bool fill_eset_blk(ESet_Blk& blk);

  const Data_Set_Conf& conf_;
  ISrc_Lister& lister_;
  Event_Handler* evt_handler_;
  IMBC_Writer* mbc_writer_ = nullptr;
  Catalog_Writer* catalog_ = nullptr;
  const Backup_Option* opt_ = nullptr;
  Ref_Ptr<Buffer> buf_;
  Backup_Context* ctx_ = nullptr;
  unsigned long long sset_off_ = 0;
  unsigned long long sset_fla_ = 0;
  unsigned long long date_ = 0;
  std::map<unsigned int, Ref_Ptr<DBLK_Writer>> writers_;
};

}  // namespace MTF
