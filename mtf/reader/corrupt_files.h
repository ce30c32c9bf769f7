// The files that a job itself marked as corrupt.
#pragma once

#include <functional>
#include <string>

#include "mtf/reader/jobs.h"

namespace MTF {

// The sum of what the ESET blocks of the medias of `job` say, each found from the end of its media
// without a look at the blocks in between. A media that can't be read counts for nothing.
unsigned long long corrupt_count(IPiece_Store& store, const Job_Pieces& job);

// Gives the path of each in system form. No catalog has them: walks the blocks of all medias, and
// passes over what can't be read.
void list_corrupt(IPiece_Store& store, const Job_Pieces& job,
                  const std::function<void(const std::string& path)>& on_path);

}  // namespace MTF
