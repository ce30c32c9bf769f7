#include <algorithm>

#include "mtf/reader/catalog_seqs.h"
#include "mtf/reader/job_metadata.h"
#include "services/piece_name.h"

namespace MTF {
namespace {

// True if the catalog says that it needs job `seq`, or doesn't say all that it should.
bool catalog_needs(IPiece_Store& store, const Job_Pieces& job, unsigned long long channel,
                   unsigned int seq) {
  std::string catalog;
  cat_name(job.stem, job.seq, channel, catalog);
  Metadata_Record metadata;
  if (!stored_metadata(store, catalog, metadata)) return true;
  if (stored_base(metadata, job.seq) == seq) return true;
  bool needs = false;
  const bool sound = walk_seqs(store, job, channel, [&](unsigned int needed) {
    needs = needed == seq;
    return !needs;
  });
  return needs || !sound;
}

bool job_needs(IPiece_Store& store, const Job_Pieces& job, unsigned int seq) {
  return std::any_of(job.channels.begin(), job.channels.end(), [&](unsigned long long channel) {
    return catalog_needs(store, job, channel, seq);
  });
}

}  // namespace

bool find_dependents(IPiece_Store& store, const Job_Pieces& job, std::vector<unsigned int>& seqs,
                     std::string& error) {
  seqs.clear();
  std::vector<Job_Pieces> jobs;
  if (!find_jobs(store, job.stem, jobs, error)) return false;
  for (const Job_Pieces& later : jobs) {
    if (later.seq > job.seq && job_needs(store, later, job.seq)) seqs.push_back(later.seq);
  }
  return true;
}

}  // namespace MTF
