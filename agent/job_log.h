// The library's log on standard error.
#pragma once

#include <ace/Log_Msg_Callback.h>

#include <mutex>
#include <string>

#include "agent/job_events.h"
#include "agent/notes.h"

namespace agent {

// Shows lines from LM_WARNING on, one each, as "warning: ..." or "error: ..." with native paths. A
// line about an entry that was left out is an event of `events`, so that each job tells it alike.
// The lines that only pass a failure on are held back.
class Job_Log final : public ACE_Log_Msg_Callback {
 public:
  // `notes` must outlive it. `walk_tells` says that events name what the walk leaves out, as in a
  // full job; without it the lines do.
  Job_Log(Notes& notes, bool walk_tells) : notes_(notes), walk_tells_(walk_tells) {}
  ~Job_Log() override;

  // Null at first. Set while no other thread logs.
  void events(Job_Events* events) { events_ = events; }

  void log(ACE_Log_Record& record) override;

  // The first line that was held back, where no other told of an error; else empty.
  std::string held_back() const;

  // Takes the log lines of the calling thread for as long as the object lives. From then on no line
  // of the process goes anywhere else.
  void attach();

 private:
  void show(ACE_Log_Record& record);
  bool tell_skip(const std::string& text);
  // True for a line behind which another one names the entry.
  bool is_told_better(const std::string& text) const;
  bool hold_back(const std::string& text);

  Notes& notes_;
  const bool walk_tells_;
  Job_Events* events_ = nullptr;
  mutable std::mutex mutex_;  // for the rest
  std::string held_back_;
  bool has_told_ = false;  // of an error
};

}  // namespace agent
