// A small tree that two jobs save one after the other, and what must hold whatever the second
// meets.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>

#include "platform/file.h"
#include "tests/support/test_job.h"

namespace test_support {

// How a job of the chain is run.
struct Kind {
  unsigned channels = 2;
  bool incremental = false;
  bool records = false;  // of the files are saved, not their plain bytes
  int threads = 1;
};

std::ostream& operator<<(std::ostream& out, const Kind& kind);

// The tree is `s` on the volume `X:`. It has a deep directory, files of one and of several data
// buffers and of none, one that shrinks while it is read, and data of an action ahead of the job;
// between the jobs it changes on each channel. Everything is compressed.
class Chain : public testing::Test {
 protected:
  Chain();
  ~Chain() override;

  // Runs job 1 and changes the tree.
  void start(const Kind& kind);

  // Prepares `job` as job 2 on a storage that holds job 1, and runs it.
  void prepare(Test_Job& job, const Kind& kind);
  bool run(Test_Job& job, const Kind& kind);

  // Cleans up and takes the job back: nothing local is left, each channel was closed and released,
  // and the storage holds job 1 as it was, but for the pieces of `kept`.
  void expect_taken_back(Test_Job& job, const std::vector<std::string>& kept = {}) const;

  const Temp_Dir tree;
  std::map<std::string, std::string> earlier;  // the pieces of job 1

 private:
  void reset_shrinking(long long mtime) const;

  platform::File pre_action_;
};

// The numbers of a job's channels.
std::vector<unsigned long long> channel_numbers(unsigned channels);

// What verification says of these channels of job `seq`; empty if all is well.
std::string faults_of(const std::map<std::string, std::string>& pieces, unsigned seq,
                      const std::vector<unsigned long long>& channels);

}  // namespace test_support
