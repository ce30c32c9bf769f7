#include <algorithm>

#include "mtf/reader/catalog_seqs.h"

namespace MTF {
namespace {

bool has_channel(const std::vector<Job_Pieces>& jobs, unsigned int seq,
                 unsigned long long channel) {
  return std::any_of(jobs.begin(), jobs.end(), [&](const Job_Pieces& job) {
    return job.seq == seq && job.complete &&
           std::binary_search(job.channels.begin(), job.channels.end(), channel);
  });
}

}  // namespace

unsigned int find_lost_job(IPiece_Store& store, const Job_Pieces& job,
                           const std::vector<Job_Pieces>& jobs) {
  unsigned int lost = 0;
  for (const unsigned long long channel : job.channels) {
    // The last that was found: most entries are of the same job as the one before.
    unsigned int there = job.seq;
    walk_seqs(store, job, channel, [&](unsigned int seq) {
      if (seq == there) return true;
      if (has_channel(jobs, seq, channel)) {
        there = seq;
      } else {
        lost = seq;
      }
      return lost == 0;
    });
    if (lost != 0) break;
  }
  return lost;
}

}  // namespace MTF
