// Tells how far a command has come that reads jobs.
#pragma once

#include <atomic>

#include "agent/console.h"
#include "agent/counted_store.h"
#include "agent/status_line.h"

namespace agent {

class Read_Progress {
 public:
  // Both must outlive it. Without `shown` nothing is told.
  Read_Progress(MTF::IPiece_Store& store, Console& console, bool shown);

  // The storage, as it is to be read.
  MTF::IPiece_Store& store() { return store_; }

  // The job that is read from now on.
  void begin(unsigned int seq) { seq_ = seq; }

 private:
  Counted_Store store_;
  std::atomic<unsigned int> seq_{0};
  Status_Line line_;
};

}  // namespace agent
