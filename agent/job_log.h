// The library's log on standard error.
#pragma once

#include <ace/Log_Msg_Callback.h>

#include <map>
#include <mutex>
#include <string>

#include "agent/console.h"

namespace agent {

// Shows lines from LM_WARNING on, one each, as "warning: ..." or "error: ...". A line that came
// before is counted, and the count is told when the log ends.
class Job_Log final : public ACE_Log_Msg_Callback {
 public:
  // `console` must outlive it. `walk_tells` says that events name what the walk leaves out, as in a
  // full job; without it the lines do.
  Job_Log(Console& console, bool walk_tells) : console_(console), walk_tells_(walk_tells) {}
  ~Job_Log() override;

  void log(ACE_Log_Record& record) override;

  // Sends the log lines of the calling thread here, until the log ends, and none of the process
  // anywhere else.
  void attach();

  // Tells how often lines came again, and forgets them.
  void flush();

 private:
  void show(ACE_Log_Record& record);
  // True for a line behind which another one names the entry.
  bool is_told_better(const std::string& text) const;
  // True for a line that hasn't come before, as far as is remembered.
  bool is_new(const std::string& line);

  Console& console_;
  const bool walk_tells_;
  std::mutex mutex_;
  std::map<std::string, unsigned long long> repeats_;  // by line; 0 for one that came once
};

}  // namespace agent
