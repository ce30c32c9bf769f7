// The jobs whose medias hold what a catalog lists.
#pragma once

#include <functional>

#include "mtf/reader/jobs.h"

namespace MTF {

// Gives the job of each entry in the catalog of `channel` of `job`, until `on_seq` returns false.
// False if a fault kept anything from being read.
bool walk_seqs(IPiece_Store& store, const Job_Pieces& job, unsigned long long channel,
               const std::function<bool(unsigned int seq)>& on_seq);

}  // namespace MTF
