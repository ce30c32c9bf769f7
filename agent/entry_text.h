// Words for the entries of a job.
#pragma once

namespace agent {

// The word for a Block_Type: "file", "dir".
const char* type_text(unsigned int type);

}  // namespace agent
