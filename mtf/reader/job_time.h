// When a job was made.
#pragma once

#include "mtf/reader/jobs.h"

namespace MTF {

// Seconds since 1970 of the date on the first media of `job` that can be read; false if there is
// none.
bool job_time(IPiece_Store& store, const Job_Pieces& job, long long& time);

}  // namespace MTF
