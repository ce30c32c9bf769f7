// The tree of a job, put together from its medias alone.
#pragma once

#include <functional>

#include "mtf/reader/job_tree.h"

namespace MTF {

// Gives every entry of a job's medias, channel by channel, each `placed`. The blocks tell the tree;
// where damage took some of them, the catalog that the media carries names what was there. A file
// whose directory neither of them tells stands below `lost+found`.
class Media_Tree {
 public:
  // Keeps all references.
  Media_Tree(IPiece_Store& store, const Job_Pieces& job, const Fault_Sink& on_fault)
      : store_(store), job_(job), on_fault_(on_fault) {}

  // False if a fault kept anything from being read. Reads no content.
  bool walk(const std::function<void(const Tree_Entry&)>& on_entry);

  // Gives the files that the job marked as corrupt, and nothing else.
  bool walk_corrupt(const std::function<void(const Tree_Entry&)>& on_entry);

  // The same as walk() from the catalogs of the medias, without a look at the blocks. A media whose
  // catalog isn't whole is walked.
  bool list(const std::function<void(const Tree_Entry&)>& on_entry);

 private:
  class Channel;
  using Walk_Channel = void (Channel::*)();

  bool each_channel(const std::function<void(const Tree_Entry&)>& on_entry, Walk_Channel walk);

  IPiece_Store& store_;
  const Job_Pieces& job_;
  const Fault_Sink& on_fault_;
  Tree_Place place_;
};

// Gives every entry of a job: from its medias alone, or from its catalogs.
bool walk_tree(IPiece_Store& store, const Job_Pieces& job, bool from_media,
               const std::function<void(const Tree_Entry&)>& on_entry, const Fault_Sink& on_fault);

}  // namespace MTF
