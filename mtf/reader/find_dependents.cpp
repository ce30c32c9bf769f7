#include <algorithm>
#include <memory>

#include "mtf/reader/catalog_walker.h"
#include "mtf/reader/job_metadata.h"
#include "mtf/reader/jobs.h"
#include "services/piece_name.h"

namespace MTF {
namespace {

// True if the catalog says that it needs job `seq`, or doesn't say all that it should.
bool catalog_needs(IPiece_Store& store, const std::string& catalog, unsigned int own_seq,
                   unsigned int seq) {
  Metadata_Record metadata;
  if (!stored_metadata(store, catalog, metadata)) return true;
  const auto base = metadata.host.find(base_seq_key);
  if (base != metadata.host.end() && base->second == std::to_string(seq)) return true;
  std::string error;
  const std::unique_ptr<IRandom_Reader> reader = store.open(catalog, error);
  if (reader == nullptr) return true;
  bool needs = false;
  const Fault_At on_fault = [&](unsigned long long, const std::string&) { needs = true; };
  Piece_Window window(*reader);
  Catalog_Walker walker(window, own_seq, on_fault);
  walker.open();
  Catalog_Record record;
  while (!needs && walker.next(record)) needs = record.seq == seq;
  return needs;
}

bool job_needs(IPiece_Store& store, const Job_Pieces& job, unsigned int seq) {
  return std::any_of(job.channels.begin(), job.channels.end(), [&](unsigned long long channel) {
    std::string catalog;
    cat_name(job.stem, job.seq, channel, catalog);
    return catalog_needs(store, catalog, job.seq, seq);
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
