#include "agent/keep_rule.h"

#include <algorithm>
#include <ctime>
#include <set>

#include "agent/text.h"

namespace agent {
namespace {

constexpr struct {
  const char* name;
  unsigned int Keep_Rule::*count;
  const char* period;  // two times of one period give the same text
} dated_rules[] = {{"daily", &Keep_Rule::daily, "%Y-%m-%d"},
                   {"weekly", &Keep_Rule::weekly, "%G-%V"},
                   {"monthly", &Keep_Rule::monthly, "%Y-%m"},
                   {"yearly", &Keep_Rule::yearly, "%Y"}};

std::string period_of(long long seconds_since_1970, const char* format) {
  const std::time_t time = seconds_since_1970;
  std::tm parts;
  char text[40];
  if (localtime_r(&time, &parts) == nullptr) return {};
  return std::string(text, std::strftime(text, sizeof text, format, &parts));
}

class Keeper {
 public:
  Keeper(const Keep_Rule& rule, const std::vector<Job_Facts>& jobs) : jobs_(jobs) {
    std::sort(jobs_.begin(), jobs_.end(),
              [](const Job_Facts& a, const Job_Facts& b) { return a.seq > b.seq; });
    apply_last(rule.last);
    for (const auto& each : dated_rules) apply(each.name, rule.*each.count, each.period);
    for (const Job_Facts& job : jobs_) {
      if (!job.complete) add(job.seq, "incomplete");
    }
    // From the newest down: a job needs no later one, so all that need it have been met before it.
    for (const Job_Facts& job : jobs_) {
      if (kept_.count(job.seq) != 0) keep_needed(job);
    }
  }

  const std::map<unsigned int, Keep_Reason>& kept() const { return kept_; }

 private:
  void add(unsigned int seq, const char* reason) { kept_[seq].rules.push_back(reason); }

  void apply_last(unsigned int count) {
    for (const Job_Facts& job : jobs_) {
      if (!job.complete || count == 0) continue;
      add(job.seq, "last");
      --count;
    }
  }

  void apply(const char* name, unsigned int count, const char* period) {
    if (count == 0) return;
    std::set<std::string> periods;
    for (const Job_Facts& job : jobs_) {
      if (!job.complete) continue;
      if (job.time == 0) {
        if (undated_.insert(job.seq).second) add(job.seq, "has no date");
      } else if (periods.size() < count && periods.insert(period_of(job.time, period)).second) {
        add(job.seq, name);
      }
    }
  }

  void keep_needed(const Job_Facts& job) {
    for (const unsigned int seq : needs_of(job, jobs_)) {
      std::vector<unsigned int>& needed_by = kept_[seq].needed_by;
      needed_by.insert(needed_by.begin(), job.seq);
    }
  }

  std::vector<Job_Facts> jobs_;  // the newest first
  std::map<unsigned int, Keep_Reason> kept_;
  std::set<unsigned int> undated_;
};

}  // namespace

bool is_empty(const Keep_Rule& rule) {
  return rule.last == 0 && std::all_of(std::begin(dated_rules), std::end(dated_rules),
                                       [&](const auto& each) { return rule.*each.count == 0; });
}

std::string reason_text(const Keep_Reason& reason) {
  std::string text;
  for (const std::string& rule : reason.rules) text += (text.empty() ? "" : ", ") + rule;
  if (reason.needed_by.empty()) return text;
  return text + (text.empty() ? "" : "; ") + "needed by " + ranges_text(reason.needed_by);
}

std::map<unsigned int, Keep_Reason> find_kept(const Keep_Rule& rule,
                                              const std::vector<Job_Facts>& jobs) {
  return Keeper(rule, jobs).kept();
}

}  // namespace agent
