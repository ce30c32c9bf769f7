// What is told of a full job that has ended.
#pragma once

#include <string>

#include "agent/console.h"
#include "agent/job_events.h"
#include "agent/job_options.h"

namespace agent {

struct Full_Result {
  bool done = false;      // what the library said
  bool canceled = false;  // by the user
  unsigned int seq = 0;
  unsigned int err_code = 0;
  std::string err_msg;
  double seconds = 0;
};

// Prints the summary of the job, as its last object with `options.json`, and why it failed if it
// did; if that can't be written, a line that a job is saved. Returns the exit code.
int report_full(const Full_Options& options, const Full_Result& result, const Job_Events& events,
                Console& console);

// Tells why there is no job: a line, and the last object with `options.json`. Returns `code`.
int report_refusal(const Full_Options& options, int code, const std::string& message,
                   Console& console);

}  // namespace agent
