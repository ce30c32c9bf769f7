// A mount of jobs as a read-only file system.
#pragma once

#include <string>

#include "agent/console.h"
#include "agent/mounted_jobs.h"

namespace agent {

struct Mount_Options {
  std::string storage;
  std::string stem;
  std::string directory;
  bool allow_other = false;
};

// Mounts `jobs` at the directory and serves it until it is unmounted or a signal asks for the end.
// Returns the exit code; failures have been told.
int run_mount_session(const Mount_Options& options, Mounted_Jobs& jobs, Console& console);

}  // namespace agent
