// Which jobs of a chain stay when old ones are thrown away.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "agent/job_facts.h"

namespace agent {

// Each rule counts for itself: the newest jobs, and of the newest days, weeks, months and years
// that have a job the newest one of each. 0 for a rule that isn't given.
struct Keep_Rule {
  unsigned int last = 0;
  unsigned int daily = 0;
  unsigned int weekly = 0;
  unsigned int monthly = 0;
  unsigned int yearly = 0;
};

bool is_empty(const Keep_Rule& rule);

// Why a job stays.
struct Keep_Reason {
  std::vector<std::string> rules;       // "last", "daily", "weekly", "has no date", "incomplete"
  std::vector<unsigned int> needed_by;  // jobs that stay, in rising order
};

// "last, daily; needed by 3-7".
std::string reason_text(const Keep_Reason& reason);

// The jobs that stay, by their numbers. Nothing that stays needs one that isn't among them.
//
// Rules look at complete jobs alone, by their numbers from the newest on; days, ISO weeks, months
// and years are those of the local time. A job without a date stays where a rule asks for dates.
// One that isn't complete stays, since it may be made whole again. With each job that stays go
// those that it needs; see needs_of().
std::map<unsigned int, Keep_Reason> find_kept(const Keep_Rule& rule,
                                              const std::vector<Job_Facts>& jobs);

}  // namespace agent
