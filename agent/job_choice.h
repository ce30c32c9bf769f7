// Finding the job that a command is about.
#pragma once

#include <memory>
#include <string>

#include "agent/job_options.h"
#include "agent/storage.h"
#include "mtf/reader/jobs.h"

namespace agent {

// A storage that is read from, and one of its jobs.
class Job_Choice {
 public:
  // Opens the storage and finds the job: where `options.seq` is 0 the newest complete one of its
  // name, or the newest if none is complete. False, with a line for the user in `error`, if there
  // is none.
  bool open(const Job_Options& options, std::string& error);

  // After open() has succeeded.
  IStorage& store() { return *storage_; }
  const MTF::Job_Pieces& job() const { return job_; }

  // All jobs of the name, in rising order.
  const std::vector<MTF::Job_Pieces>& jobs() const { return jobs_; }

  // "job 3 of 'demo'".
  std::string title() const;

  // Tells of a job that isn't complete: this one, or a newer one that was passed over. Empty if
  // there is nothing to tell.
  std::string warning() const;

 private:
  std::unique_ptr<IStorage> storage_;
  std::vector<MTF::Job_Pieces> jobs_;
  MTF::Job_Pieces job_;
  unsigned int newest_seq_ = 0;
};

// "demo.1.0.mtf:4096: what is wrong there".
std::string fault_text(const MTF::Fault& fault);

}  // namespace agent
