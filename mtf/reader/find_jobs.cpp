#include <algorithm>
#include <map>
#include <set>
#include <tuple>

#include "mtf/reader/job_metadata.h"
#include "mtf/reader/jobs.h"
#include "services/piece_name.h"

namespace MTF {
namespace {

// The pieces that a job has on its channels.
struct Found_Channels {
  std::set<unsigned long long> medias;
  std::set<unsigned long long> catalogs;
};

bool is_complete(IPiece_Store& store, const Job_Pieces& job, const Found_Channels& found) {
  return found.medias == found.catalogs && expected_channels(store, job) == job.channels;
}

}  // namespace

bool find_jobs(IPiece_Store& store, const std::string& stem, std::vector<Job_Pieces>& jobs,
               std::string& error) {
  jobs.clear();
  std::vector<std::string> names;
  if (!store.pieces(names, error)) return false;
  std::map<std::pair<std::string, unsigned int>, Found_Channels> found;
  for (const std::string& name : names) {
    Piece_Name piece;
    if (!parse_piece_name(name, piece) || piece.flag) continue;
    if (!stem.empty() && piece.stem != stem) continue;
    Found_Channels& channels = found[{piece.stem, piece.seq}];
    (piece.catalog ? channels.catalogs : channels.medias).insert(piece.channel);
  }
  for (const auto& [key, channels] : found) {
    Job_Pieces job;
    std::tie(job.stem, job.seq) = key;
    std::set_union(channels.medias.begin(), channels.medias.end(), channels.catalogs.begin(),
                   channels.catalogs.end(), std::back_inserter(job.channels));
    job.complete = is_complete(store, job, channels);
    jobs.push_back(std::move(job));
  }
  return true;
}

}  // namespace MTF
