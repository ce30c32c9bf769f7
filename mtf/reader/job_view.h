// A job as a tree to look into: names at once, and all else from the medias when it is asked for.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "mtf/reader/jobs.h"
#include "mtf/reader/view_file.h"
#include "mtf/reader/view_medias.h"
#include "mtf/reader/view_tree.h"

namespace MTF {

// What a job holds of an entry beside its content.
struct View_Attributes {
  struct Owner {
    unsigned long long uid;
    unsigned long long gid;
    unsigned int mode;  // the permission bits
  };
  std::optional<Owner> owner;    // none where the job doesn't say
  unsigned long long size = 0;   // of the content; 0 for a directory
  unsigned long long space = 0;  // bytes that it took on its disk
  long long mtime = 0;           // seconds since 1970
  long long atime = 0;
  std::vector<std::pair<std::string, std::string>> extended;  // POSIX ACLs among them
};

// Entries have numbers: View_Tree::root is the directory that holds `home`, `X` for a volume `X:`,
// and so on, as a restore lays them out. The same job always has the same numbers. All operations
// may be called from several threads.
//
// Nothing is believed that the media doesn't confirm: the block of an entry must have its name,
// size and kind, and so must that of its directory. A failure gives `why`, which names the place.
class Job_View {
 public:
  // Reads the catalogs of `job`, damaged ones as far as that goes; see View_Tree::build() for the
  // sinks. The store must outlive the view; its operations are never called by two threads at once,
  // but readers that it opened are used by one thread each at the same time.
  static std::shared_ptr<Job_View> open(IPiece_Store& store, const Job_Pieces& job,
                                        const Fault_Sink& on_fault, const Problem_Sink& on_problem);

  const View_Tree& tree() const { return tree_; }

  // The attributes of an entry, from its media or from a cache of bounded size. Null, with `why`
  // set, on failure.
  std::shared_ptr<const View_Attributes> attributes(View_Tree::Number number, std::string& why);

  // The content of a file; null, with `why` set, if it is no file or its block can't be found.
  std::shared_ptr<View_File> open_file(View_Tree::Number number, std::string& why);

 private:
  friend class View_File;

  Job_View(IPiece_Store& store, const Job_Pieces& job) : job_(job), medias_(store, job.stem) {}

  View_Medias::Loan find_block(View_Tree::Number number, Media_Block& block, std::string& why);
  bool is_block_of(View_Tree::Number number, Media_File& media, const Media_Block& block) const;
  bool is_place_right(View_Tree::Number number, const Media_Block& block, std::string& why);
  std::shared_ptr<View_Attributes> load(View_Tree::Number number, std::string& why);
  void remember(View_Tree::Number number, const std::shared_ptr<const View_Attributes>& attributes);

  struct Known {
    View_Tree::Number number;
    std::shared_ptr<const View_Attributes> attributes;
  };

  const Job_Pieces job_;
  View_Tree tree_;
  View_Medias medias_;
  std::mutex mutex_;
  std::list<Known> known_;  // the one used last is the first
  std::unordered_map<View_Tree::Number, std::list<Known>::iterator> places_;
  unsigned long long known_bytes_ = 0;
  std::list<std::shared_ptr<View_File>> files_;  // large ones that were checked
};

}  // namespace MTF
