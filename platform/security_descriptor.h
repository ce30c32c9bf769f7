// Owner, group and mode of a file in the form of a Windows security descriptor.
#pragma once

#include <string>

namespace platform {

// Appends a self-relative descriptor (SECURITY_DESCRIPTOR, revision 1): owner S-1-5-88-1-<uid>,
// group S-1-5-88-2-<gid>, and a DACL of one entry for S-1-5-88-3-<mode>, of which the permission
// bits are kept. The entry denies an empty set of rights, so that it carries the mode and changes
// nobody's access.
void append_security_descriptor(unsigned int uid, unsigned int gid, unsigned int mode,
                                std::string& out);

}  // namespace platform
