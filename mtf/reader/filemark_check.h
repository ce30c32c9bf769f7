// The check of the soft filemarks of a media.
#pragma once

#include <deque>

#include "mtf/reader/media_walker.h"

namespace MTF {

class Filemark_Check {
 public:
  explicit Filemark_Check(const Fault_At& on_fault) : on_fault_(on_fault) {}

  // Checks a SFMB block: its size, its number, and its list of the filemarks before it.
  void take(const Media_Block& block, const Media_Geometry& geometry);

  // Blocks may have been missed: the filemarks before here are no longer known.
  void forget();

 private:
  void check_array(const Media_Block& block, unsigned int entries);

  const Fault_At& on_fault_;
  bool sure_ = true;
  unsigned int count_ = 0;
  std::deque<unsigned int> earlier_;  // positions in physical blocks, newest first
};

}  // namespace MTF
