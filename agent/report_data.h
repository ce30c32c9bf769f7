// What a report tells of a chain of jobs, gathered from their catalogs.
#pragma once

#include <string>
#include <vector>

#include "agent/job_facts.h"

namespace agent {

struct Report_Job : Job_Facts {
  unsigned long long corrupt = 0;          // files that went bad while they were saved
  std::vector<std::string> corrupt_paths;  // native, of the first of them
};

struct Sized_Path {
  std::string path;  // native
  unsigned long long bytes;
  unsigned long long files;  // 1 for a file
};

struct Report_Data {
  std::string stem;
  std::vector<Report_Job> jobs;  // by number
  unsigned int seq = 0;          // the job that the lists below tell of
  unsigned int before = 0;       // the job that `grown` compares it with; 0 if there is none
  std::vector<Sized_Path> directories, files;  // the largest
  std::vector<Sized_Path> grown;               // directories by what they have more than before
};

// Gathers all of it. `seq` chooses the job of the lists, 0 the newest complete one. False, with
// `error` set, if the jobs can't be listed or there is no such job.
bool gather_report(MTF::IPiece_Store& store, const std::string& stem, unsigned int seq,
                   Report_Data& out, std::string& error);

}  // namespace agent
