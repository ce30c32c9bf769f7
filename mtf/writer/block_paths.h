// The paths of the files that a row of catalog blocks names.
#pragma once

#include <map>
#include <string>

#include "mtf/catalog/catalog_helper.h"

namespace MTF {

// Follows the blocks of one channel in their order.
class Block_Paths {
 public:
  // Of a job numbered `seq`. `volume_map` leads from volumes to their shadows; it may be null, and
  // must outlive the object.
  Block_Paths(unsigned short seq, const std::map<std::string, std::string>* volume_map)
      : seq_(seq), volume_map_(volume_map) {}

  // Goes to the place of a VOLB or DIRB block; passes over other kinds.
  void go_to(const Cat_Blk& block);
  // Gives the system path of the file that a FILE block names, under its shadow volume where there
  // is one. False for other kinds, for a file of another job and for one without content.
  bool find_file(const Cat_Blk& block, std::string& path) const;

 private:
  const unsigned short seq_;
  const std::map<std::string, std::string>* volume_map_;
  std::string volume_;
  std::string shadow_;
  std::string dir_;
};

}  // namespace MTF
