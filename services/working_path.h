// The local working files of a job: native paths below its temporary directory, which goes as a
// whole when the job is cleaned up.
#pragma once

#include <string>

#include "services/storage.h"

namespace platform {
class Held_Directory;
}

namespace MTF {

// Makes the temporary directory itself where it is missing, for its owner alone. The default one is
// closed to others and refused if it belongs to somebody else or is a link. False, with errno.
bool make_job_tmp_dir(const std::string& job_tmp_dir);

// The files of a channel, all with the same arguments: the temporary directory, a part of the file
// name that may be empty, the job's name stem and the channel number. The directory is made, for
// its owner alone; false, with errno, if that fails or if it belongs to somebody else.
bool cat_path(const std::string& job_tmp_dir, const std::string& option_path,
              const std::string& stem, unsigned long long channel, std::string& out);
bool tfdd_path(const std::string& job_tmp_dir, const std::string& option_path,
               const std::string& stem, unsigned long long channel, std::string& out);
bool tsmp_path(const std::string& job_tmp_dir, const std::string& option_path,
               const std::string& stem, unsigned long long channel, std::string& out);
bool prev_cat_path(const std::string& job_tmp_dir, const std::string& option_path,
                   const std::string& stem, unsigned long long channel, std::string& out);

// Makes the directory of the job's files where that can be done, and holds it for as long as `held`
// does. False if another job holds it; a directory that can't be made or held is left to the calls
// above, which tell.
bool hold_working_directory(const std::string& job_tmp_dir, const std::string& stem,
                            platform::Held_Directory& held);

// Deletes that directory with all in it, but not while a job holds it. True if nothing was to be
// deleted.
bool remove_working_directory(const std::string& job_tmp_dir, const std::string& stem);

// Copies all that `reader` gives into a new local file at `path`, replacing one that is there.
bool reader_to_file(IReader* reader, const std::string& path);

}  // namespace MTF
