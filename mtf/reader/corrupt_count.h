// How many files a job itself marked as corrupt.
#pragma once

#include "mtf/reader/jobs.h"

namespace MTF {

// The sum of what the ESET blocks of the medias of `job` say, each found from the end of its media
// without a look at the blocks in between. A media that can't be read counts for nothing.
unsigned long long corrupt_count(IPiece_Store& store, const Job_Pieces& job);

}  // namespace MTF
