#include "mtf/writer/callback_source_producer.h"

#include <ace/ACE.h>
#include <ace/Log_Msg.h>

#include <algorithm>
#include <iterator>

#include "mtf/writer/file_type.h"
#include "mtf/writer/leaf_name.h"
#include "services/assertion.h"
#include "services/file_path.h"

namespace MTF {
namespace {

// As its errno the event of a directory that the host couldn't read has no more than this.
constexpr int host_failed = -1;

// What progress_report_mode() gives for the short report of a listing.
constexpr int short_report = 1;

}  // namespace

Callback_Source_Producer::Callback_Source_Producer(unsigned short seq, bool pre_action_data,
                                                   Event_Handler* handler,
                                                   std::shared_ptr<ACE_Log_Msg_Callback> log)
    : Block_Producer(seq, pre_action_data, handler, log) {}

int Callback_Source_Producer::init(const std::list<std::string>* sources, const IFilter* filter,
                                   Ref_Ptr<Writer_Hardlink_Map> hardlink_map,
                                   Ref_Ptr<IBackup_Callback> callback) {
  MTF_ASSERT_NOT_NULL(hardlink_map.get(), -1);
  MTF_ASSERT_NOT_NULL(callback.get(), -1);
  sources_ = sources;
  filter_ = filter;
  hardlink_map_ = hardlink_map;
  callback_ = callback;
  return 0;
}

int Callback_Source_Producer::produce() {
  std::list<source_entry> list;
  if (!resolve(list)) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to convert sources to source_list_type\n")), -1);
  }
  lister_ = callback_->create_source_lister(sources_, seq_, event_handler_, filter_);
  if (!(lister_.get() != nullptr ? take_listed() : walk(list))) return -1;
  return write_end() ? 0 : -1;
}

void Callback_Source_Producer::on_listing_end() {
  callback_->handle_source_produce_end();
}

bool Callback_Source_Producer::walk(const std::list<source_entry>& list) {
  return std::all_of(list.begin(), list.end(), [this](const source_entry& entry) {
    if (!callback_->handle_source_entry_begin(entry)) return false;
    const bool ok = process_source(entry);
    return callback_->handle_source_entry_end(entry, ok);
  });
}

bool Callback_Source_Producer::read_dir(const std::string& path, std::vector<Entry>& entries) {
  if (is_filtered(path, true)) return false;
  std::list<Entry> given;
  if (!callback_->read_dir(path.c_str(), given)) {
    ++skipped_dirs();
    send_skip("directory", path, host_failed, "Failed to open directory.");
    ACE_ERROR_RETURN(
        (LM_ERROR, ACE_TEXT("Failed to read entries from: %C, and skipped it\n"), path.c_str()),
        false);
  }
  entries.assign(std::make_move_iterator(given.begin()), std::make_move_iterator(given.end()));
  for (const Entry& entry : oxbase::put_in_order(entries)) skip_nameless(path, entry);
  // A host's entries have no reparse type.
  for (Entry& entry : entries) entry.reparse_type = 0;
  return true;
}

bool Callback_Source_Producer::is_wanted(const std::string& dir, const Entry& entry) {
  if (is_leaf_name(entry.name)) {
    return filter_ == nullptr ||
           !is_filtered(MTF_FS::entry_path(dir, entry.name), entry.is_directory());
  }
  skip_nameless(dir, entry);
  return false;
}

bool Callback_Source_Producer::is_filtered(const std::string& path, bool is_directory) const {
  if (filter_ == nullptr || filter_->accept(path.c_str(), is_directory)) return false;
  if (ACE::debug()) ACE_DEBUG((LM_DEBUG, ACE_TEXT("Filter path: %C\n"), path.c_str()));
  return true;
}

// An empty name or a dot would lead a walk in circles, a separator out of the directory, and the
// name of a directory can't be restored as anything else.
void Callback_Source_Producer::skip_nameless(const std::string& path, const Entry& entry) {
  ACE_ERROR((LM_ERROR, ACE_TEXT("Skipped an entry that has no name of its own, path=%C, name=%C\n"),
             path.c_str(), entry.name.c_str()));
  ++(entry.is_directory() ? skipped_dirs() : skipped_files());
  send_skip(entry.is_directory() ? "directory" : "file", path, EINVAL, "Invalid name.");
}

void Callback_Source_Producer::report_listing() {
  unsigned long long per_percent = callback_->file_count_one_percent();
  if (per_percent == 0) {
    if (!told_percent_) {
      ACE_ERROR((LM_ERROR, ACE_TEXT("Host counts no files to a percent, taking %Q\n"),
                 files_per_percent));
    }
    told_percent_ = true;
    per_percent = files_per_percent;
  }
  const unsigned long long count = summary_.file_count();
  if (count <= per_percent) return;
  const int highest = callback_->max_file_count_percent();
  if (event_handler_->progress_report_mode() == short_report) {
    event_handler_->refresh_total_count(count, highest);
  } else {
    report(listed_percent(count, per_percent, highest));
  }
}

}  // namespace MTF
