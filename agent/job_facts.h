// What several commands tell of a job.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "mtf/reader/jobs.h"

namespace agent {

struct Job_Facts : MTF::Job_Contents {
  unsigned int seq = 0;
  bool complete = false;
  bool sound = false;               // all of its catalogs could be read
  long long time = 0;               // when it was made, in seconds since 1970; 0 if it isn't known
  std::vector<std::string> faults;  // what could not be read of it, as far as a person reads on
};

// Reads the catalogs of `job`.
Job_Facts facts_of(MTF::IPiece_Store& store, const MTF::Job_Pieces& job);

// "full", "from 3", or "incremental" where nothing tells from which.
std::string kind_text(const Job_Facts& job);

// The jobs that `job` can't do without: those whose medias hold what its catalogs list. If its
// catalogs aren't whole, that can't be told. Then it needs the job that it started from, whose
// catalogs tell more, or, if that isn't among `jobs`, all of them before it. `jobs` are those of
// the same name.
std::set<unsigned int> needs_of(const Job_Facts& job, const std::vector<Job_Facts>& jobs);

}  // namespace agent
