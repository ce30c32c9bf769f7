// Decides what a job saves whose sources are the host's: walks them through the host's callback, or
// takes what a lister of the host gives.
#pragma once

#include <list>
#include <memory>
#include <string>
#include <vector>

#include "mtf/writer/block_producer.h"
#include "mtf/writer/ibackup_callback.h"

namespace MTF {

// Gives the same stream as Source_Producer. The host's operations are called on the task's thread
// alone, and none of them again after one whose failure ends the listing.
class Callback_Source_Producer : public Block_Producer {
 public:
  // As for Source_Producer.
  Callback_Source_Producer(unsigned short seq, bool pre_action_data, Event_Handler* handler,
                           std::shared_ptr<ACE_Log_Msg_Callback> log);

  // Stores its arguments and returns 0; -1 without a map or a callback. The sources are paths of
  // the host's. `sources` and `filter`, which may be null, are not owned.
  int init(const std::list<std::string>* sources, const IFilter* filter,
           Ref_Ptr<Writer_Hardlink_Map> hardlink_map, Ref_Ptr<IBackup_Callback> callback);

 private:
  // The base has another operation of this name.
  using Block_Producer::init;

  int produce() override;
  char source_separator() const override { return separator_; }
  void report_listing() override;
  void on_listing_end() override;

  bool resolve(std::list<source_entry>& out);
  Verdict resolve_source(const std::string& source, source_entry& out);
  Verdict examine(const std::string& source, source_entry& out);

  bool walk(const std::list<source_entry>& list);
  bool read_dir(const std::string& path, std::vector<Entry>& entries) override;
  bool is_wanted(const std::string& dir, const Entry& entry) override;
  bool is_filtered(const std::string& path, bool is_directory) const;
  void skip_nameless(const std::string& path, const Entry& entry);

  bool take_listed();
  bool put_listed_block(Cat_Blk& block);
  void mark_uncertain(Cat_Blk& block) const;
  bool note_link(const Cat_Blk& block, bool& left_out);
  bool note_place(const Cat_Blk& block);
  const char* fault_of(const Cat_Blk& block) const;

  const std::list<std::string>* sources_ = nullptr;
  const IFilter* filter_ = nullptr;
  Ref_Ptr<IBackup_Callback> callback_;
  Ref_Ptr<ISrc_Lister> lister_;
  char separator_ = '\\';      // of the host's sources
  bool has_volume_ = false;    // the lister has given a volume
  bool told_percent_ = false;  // the log has the line on a percent of no files
};

}  // namespace MTF
