// From the options of a full job to the arguments of the library.
#pragma once

#include <list>
#include <map>
#include <string>
#include <vector>

#include "agent/job_options.h"
#include "agent/storage.h"
#include "agent/work_directory.h"

namespace agent {

struct Full_Plan {
  std::vector<std::string> sources;      // absolute
  std::list<std::string> excludes;       // in system form, the job's own files included
  std::list<std::string> user_excludes;  // those that the user named
  std::map<std::string, std::string> shadows;
  unsigned short compression = 0;
  Work_Directory work_dir;
  unsigned int seq = 0;       // of the job before
  unsigned int base_seq = 0;  // of the job that an incremental one starts from; 0 for a full one
};

// Works out the plan and fills the volume roots of the process. Opens `storage` for the job and
// makes its working directory. Returns exit_done, or the exit code to end with and, in `error`, the
// line for the user.
int make_full_plan(const Full_Options& options, IStorage& storage, Full_Plan& plan,
                   std::string& error);

// Takes "NAME=VALUE" apart at its first `=`; false if either part is empty.
bool split_assignment(const std::string& text, std::string& name, std::string& value);

}  // namespace agent
