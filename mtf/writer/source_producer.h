// Decides what a job saves: walks the sources and puts one catalog block on its queue for each
// volume, directory and file.
#pragma once

#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "mtf/writer/block_producer.h"
#include "platform/source_root.h"

namespace MTF {

class Source_Producer : public Block_Producer {
 public:
  // `pre_action_data` asks for a PDAT block behind the first volume. `handler` may be null and is
  // not owned.
  Source_Producer(unsigned short seq, bool pre_action_data, Event_Handler* handler,
                  std::shared_ptr<ACE_Log_Msg_Callback> log);

  // Native or system paths. A directory that is one or lies below one is left out with what the
  // walk would have found in it; the walk with several threads looks at no source by itself, and no
  // walk at a file. A source that lies in an excluded one is a source all the same.
  void exclude_list(const std::list<std::string>& list) { exclude_list_ = list; }

  // Stores its arguments and returns 0. None of the pointers is owned; `filter` and `volume_map`
  // may be null.
  int init(const std::list<std::string>* sources, const IFilter* filter,
           Ref_Ptr<Writer_Hardlink_Map> hardlink_map,
           const std::map<std::string, std::string>* volume_map, const std::string& cache_dir,
           int threads, unsigned int reparse_point_types);

 private:
  // The base has another operation of this name.
  using Block_Producer::init;

  int produce() override;
  void guard(const std::list<source_entry>& list);
  int plain_walk(const std::list<source_entry>& list);

  struct Lister_Counts;
  int lister_walk(const std::list<source_entry>& list);
  bool handle_listed(const std::string& dir, const Entry& entry, bool is_source,
                     Lister_Counts& counts);
  Verdict handle_source(const Entry& entry, Lister_Counts& counts);
  Verdict handle_directory(const std::string& full, unsigned int reparse_type,
                           Lister_Counts& counts);
  void handle_file(const std::string& dir, const Entry& entry, Lister_Counts& counts);
  bool filter_entry(const std::string& path, const Entry& entry);
  bool on_walk_error(const std::string& path, int error);
  std::string map_path(const std::string& path) const;
  bool fits_block(const std::string& path);
  // Of a directory that can't be read, what there is of the sources named below it, in no order.
  // What can't be examined is told and counted. Runs on the lister's threads as well.
  std::vector<Entry> named_entries(const std::string& dir);

  bool read_dir(const std::string& path, std::vector<Entry>& entries) override;
  bool is_wanted(const std::string& dir, const Entry& entry) override;
  bool is_excluded(const std::string& path);
  bool is_filtered(const std::string& path, bool is_directory);
  std::string path_to_open(const std::string& path) const;

  void set_volume(const std::string& vol) override;
  void on_unsupported_file(const std::string& full) override;

  std::string shadow_vol_;
  const std::list<std::string>* sources_ = nullptr;
  std::list<std::string> exclude_list_;
  Source_Paths covered_;  // sources that are saved with a larger one
  const IFilter* filter_ = nullptr;
  const std::map<std::string, std::string>* volume_map_ = nullptr;
  unsigned int reparse_point_types_ = 0;
  std::string cache_dir_;
  int threads_ = 1;
  // Kept until the writers have ended, which open what this task found.
  std::list<platform::Source_Root> roots_;
};

}  // namespace MTF
