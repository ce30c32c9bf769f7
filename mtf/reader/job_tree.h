// The tree of a job, put together from the catalogs of its channels.
#pragma once

#include <functional>
#include <string>

#include "mtf/reader/catalog_walker.h"
#include "mtf/reader/jobs.h"
#include "mtf/reader/tree_place.h"

namespace MTF {

// One entry with the name that its block has.
struct Tree_Entry {
  Job_Entry entry;
  std::string name;    // as it stands in the catalog
  bool again = false;  // a volume or directory that was given before
  // Its path is right whatever was lost in front of it: it doesn't depend on the entry before.
  bool placed = false;
  unsigned long long space = 0;  // bytes that it took on its disk
  unsigned long long ino = 0;    // of a file its number, of a further name that of the first one
  bool first_name = false;       // of a file that has several
};

// Gives every entry of a job's catalogs, channel by channel. A directory that several channels
// hold, or that the walk came back to, is marked `again` from the second time on.
class Job_Tree {
 public:
  // Keeps all references.
  Job_Tree(IPiece_Store& store, const Job_Pieces& job, const Fault_Sink& on_fault)
      : store_(store), job_(job), on_fault_(on_fault) {}

  // False if a fault kept anything from being read.
  bool walk(const std::function<void(const Tree_Entry&)>& on_entry);

 private:
  void walk_catalog(unsigned long long channel,
                    const std::function<void(const Tree_Entry&)>& on_entry);
  void fault(const std::string& piece, unsigned long long position, const std::string& text);

  IPiece_Store& store_;
  const Job_Pieces& job_;
  const Fault_Sink& on_fault_;
  bool sound_ = true;
  Tree_Place place_;
};

}  // namespace MTF
