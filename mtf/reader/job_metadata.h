// What the pieces of a job say of the job as a whole.
#pragma once

#include <string>
#include <vector>

#include "mtf/reader/jobs.h"
#include "services/metadata.h"

namespace MTF {

// What the metadata of the catalog piece `catalog` says; false if it can't be read.
bool stored_metadata(IPiece_Store& store, const std::string& catalog, Metadata_Record& out);

// The job that job `seq` started from, as its metadata tells; 0 where it doesn't.
unsigned int stored_base(const Metadata_Record& record, unsigned int seq);

// The text of the metadata of a job, from the media of `channel` or, where that lost it, from any
// other piece; every piece has the same. False if none has it.
bool find_metadata(IPiece_Store& store, const Job_Pieces& job, unsigned long long channel,
                   std::string& text);

// True if a media of `job` tells that it is a full one.
bool media_says_full(IPiece_Store& store, const Job_Pieces& job);

// The channels that the job must have: 0 alone, or 1 to N. Taken from the metadata of a catalog;
// where none can be read, from the channels that are there.
std::vector<unsigned long long> expected_channels(IPiece_Store& store, const Job_Pieces& job);

// The names of the pieces of channels of which the job has nothing.
std::vector<std::string> missing_pieces(IPiece_Store& store, const Job_Pieces& job);

}  // namespace MTF
