// What a running job tells, for the user.
#pragma once

#include <atomic>
#include <mutex>

#include "agent/notes.h"
#include "services/event_handler.h"
#include "services/json_spirit.h"

namespace agent {

// With `json` each event is a line `{"code": N, "document": {...}}` of the result as it comes, with
// native paths of entries. Else an entry that was skipped or went bad is a line on standard error,
// but for what was excluded.
class Job_Events final : public MTF::Event_Handler {
 public:
  // `notes` must outlive it.
  Job_Events(Notes& notes, bool json) : notes_(notes), json_(json) {}

  int handle_event(int code, const json_spirit::Value& document) override;

  // Files that went bad while they were read.
  unsigned long long corrupt() const { return corrupt_; }

  // The document of the job's summary; an empty object before the job has sent it.
  json_spirit::Document summary() const;

 private:
  void show(int code, const json_spirit::Value& document);
  void show_json(int code, json_spirit::Value document);
  void note(const char* what, const json_spirit::Value& document);

  Notes& notes_;
  const bool json_;
  std::atomic<unsigned long long> corrupt_{0};
  mutable std::mutex mutex_;
  json_spirit::Document summary_;
};

}  // namespace agent
