// What a report tells of a chain of jobs, gathered from their catalogs.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "mtf/reader/jobs.h"

namespace agent {

struct Job_Facts {
  unsigned int seq = 0;
  unsigned int base = 0;  // the job that it started from; 0 for a full one
  bool complete = false;
  long long time = 0;  // when it was made, in seconds since 1970; 0 if it isn't known
  // Files and bytes of content: of the whole tree, and what this job saved of it.
  unsigned long long files = 0, bytes = 0;
  unsigned long long saved_files = 0, saved_bytes = 0;
  std::map<unsigned int, unsigned long long>
      held_by;                      // bytes of the tree by the job that holds them
  unsigned long long corrupt = 0;   // files that went bad while they were saved
  std::vector<std::string> faults;  // what could not be read of it
};

struct Sized_Path {
  std::string path;  // native
  unsigned long long bytes;
  unsigned long long files;  // 1 for a file
};

struct Report_Data {
  std::string stem;
  std::vector<Job_Facts> jobs;  // by number
  unsigned int seq = 0;         // the job that the lists below tell of
  unsigned int before = 0;      // the job that `grown` compares it with; 0 if there is none
  std::vector<Sized_Path> directories, files;  // the largest
  std::vector<Sized_Path> grown;               // directories by what they have more than before
};

// Gathers all of it. `seq` chooses the job of the lists, 0 the newest complete one. False, with
// `error` set, if the jobs can't be listed or there is no such job.
bool gather_report(MTF::IPiece_Store& store, const std::string& stem, unsigned int seq,
                   Report_Data& out, std::string& error);

}  // namespace agent
