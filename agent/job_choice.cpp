#include "agent/job_choice.h"

#include <algorithm>
#include <vector>

#include "agent/text.h"

namespace agent {

bool Job_Choice::open(const Job_Options& options, std::string& error) {
  storage_ = make_storage(options.storage, error);
  if (!storage_ || !storage_->open_for_reading(error) ||
      !MTF::find_jobs(*storage_, options.stem, jobs_, error)) {
    return false;
  }
  for (const MTF::Job_Pieces& job : jobs_) {
    const bool wanted = options.seq == 0 ? job.complete || !job_.complete : job.seq == options.seq;
    if (wanted) job_ = job;
    if (wanted || options.seq == 0) newest_seq_ = job.seq;
  }
  if (!job_.channels.empty()) return true;
  error = options.seq == 0
              ? "there is no job of '" + options.stem + "'"
              : "there is no job " + std::to_string(options.seq) + " of '" + options.stem + "'";
  return false;
}

std::string Job_Choice::title() const {
  return "job " + std::to_string(job_.seq) + " of '" + job_.stem + "'";
}

std::string Job_Choice::warning() const {
  if (!job_.complete) return "warning: " + title() + " is not complete";
  if (newest_seq_ == job_.seq) return {};
  return "warning: job " + std::to_string(newest_seq_) + " is not complete: " + title() +
         " is taken in its place";
}

std::string fault_text(const MTF::Fault& fault) {
  return escape_controls(fault.piece + ':' + std::to_string(fault.position) + ": " + fault.text);
}

}  // namespace agent
