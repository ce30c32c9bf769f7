// The progress of a running job on standard error.
#pragma once

#include <string>

#include "agent/console.h"
#include "agent/status_line.h"
#include "services/event_handler.h"

namespace agent {

// "1234 files, 1.2 GiB, 45%, 210.0 MiB/s". Percent is left out until the listing knows how much
// there is, and the rate until there is time to divide by.
std::string progress_text(const MTF::Event_Handler::Progress& now, double seconds);

// ", 210.0 MiB/s"; empty until there is time to divide by.
std::string rate_text(unsigned long long bytes, double seconds);

// Shows progress while it lives. Also tells, once, that a cancel has been heard.
class Progress {
 public:
  // `events` and `console` must outlive it. Without `shown` only the cancel is told.
  Progress(const MTF::Event_Handler& events, Console& console, bool shown);

 private:
  bool cancel_told_ = false;
  Status_Line line_;
};

}  // namespace agent
