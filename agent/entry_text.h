// Words for the entries of a job.
#pragma once

#include <optional>
#include <string>

#include "mtf/reader/jobs.h"
#include "services/json_spirit.h"

namespace agent {

// The word for a Block_Type: "file", "dir".
const char* type_text(unsigned int type);

// The same, but what kind of a device: "fifo", "chardev", "blockdev"; "device" where its media
// can't tell.
std::string kind_text(const MTF::Job_Entry& entry, MTF::Link_Targets& targets);

// The size that `ls` gives: of a further name that of its file. Nothing where that isn't known.
std::optional<unsigned long long> size_of(const MTF::Job_Entry& entry);

// The size as a number, or "-".
std::string bytes_text(const MTF::Job_Entry& entry);

// The size as a number, or null.
json_spirit::Value bytes_json(const MTF::Job_Entry& entry);

}  // namespace agent
