#include "agent/job_facts.h"

#include <algorithm>

#include "agent/job_choice.h"
#include "mtf/reader/job_time.h"

namespace agent {
namespace {

constexpr std::size_t most_faults = 20;

}  // namespace

Job_Facts facts_of(MTF::IPiece_Store& store, const MTF::Job_Pieces& job) {
  Job_Facts facts;
  facts.seq = job.seq;
  facts.complete = job.complete;
  if (!MTF::job_time(store, job, facts.time)) facts.time = 0;
  const auto on_fault = [&facts](const MTF::Fault& fault) {
    if (facts.faults.size() < most_faults) facts.faults.push_back(fault_text(fault));
  };
  facts.sound = MTF::read_contents(store, job, facts, on_fault);
  return facts;
}

std::string kind_text(const Job_Facts& job) {
  if (!job.incremental) return "full";
  return job.base == 0 ? "incremental" : "from " + std::to_string(job.base);
}

std::set<unsigned int> needs_of(const Job_Facts& job, const std::vector<Job_Facts>& jobs) {
  std::set<unsigned int> needs;
  for (const auto& [seq, bytes] : job.held_by) {
    if (seq < job.seq) needs.insert(seq);
  }
  if ((job.complete && job.sound) || !job.incremental) return needs;
  const bool has_base = std::any_of(jobs.begin(), jobs.end(), [&](const Job_Facts& other) {
    return job.base != 0 && other.seq == job.base;
  });
  for (const Job_Facts& other : jobs) {
    if (has_base ? other.seq == job.base : other.seq < job.seq) needs.insert(other.seq);
  }
  return needs;
}

}  // namespace agent
