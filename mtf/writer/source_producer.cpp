#include "mtf/writer/source_producer.h"

#include <ace/Log_Msg.h>

#include "services/file_path.h"

namespace MTF {

Source_Producer::Source_Producer(unsigned short seq, bool pre_action_data, Event_Handler* handler,
                                 std::shared_ptr<ACE_Log_Msg_Callback> log)
    : Block_Producer(seq, pre_action_data, handler, log) {}

int Source_Producer::init(const std::list<std::string>* sources, const IFilter* filter,
                          Ref_Ptr<Writer_Hardlink_Map> hardlink_map,
                          const std::map<std::string, std::string>* volume_map,
                          const std::string& cache_dir, int threads,
                          unsigned int reparse_point_types) {
  sources_ = sources;
  filter_ = filter;
  hardlink_map_ = hardlink_map;
  volume_map_ = volume_map;
  cache_dir_ = cache_dir;
  threads_ = threads;
  reparse_point_types_ = reparse_point_types;
  return 0;
}

int Source_Producer::produce() {
  if (exclude_list_.empty()) generate_exclude_list(exclude_list_);
  std::list<source_entry> list;
  if (!to_source_list_type(*sources_, exclude_list_, filter_, volume_map_, list, &covered_)) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to convert sources to source_list_type\n")), -1);
  }
  guard(list);
  return threads_ > 1 ? lister_walk(list) : plain_walk(list);
}

// From here on no link below a source is followed, wherever it is opened.
void Source_Producer::guard(const std::list<source_entry>& list) {
  for (const source_entry& entry : list) {
    const bool follow = MTF_FS::is_root_path(entry.path);
    roots_.emplace_back(entry.path, follow);
    const std::string opened = map_path(entry.path);
    if (opened != entry.path) roots_.emplace_back(opened, follow);
  }
}

int Source_Producer::plain_walk(const std::list<source_entry>& list) {
  for (const source_entry& entry : list) {
    if (!process_source(entry)) return -1;
  }
  return write_end() ? 0 : -1;
}

void Source_Producer::set_volume(const std::string& vol) {
  Block_Producer::set_volume(vol);
  if (volume_map_ == nullptr) return;
  const auto found = volume_map_->find(vol);
  shadow_vol_ = found != volume_map_->end() ? found->second : std::string();
}

void Source_Producer::on_unsupported_file(const std::string& full) {
  send_skip("file", full, 0, "Unsupported file type");
}

}  // namespace MTF
