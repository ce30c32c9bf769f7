// A job as a tree to look into: names at once, and all else from the medias when it is asked for.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "mtf/reader/jobs.h"
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
  unsigned int node_type = 0;    // of a device or FIFO, the bits of its mode that tell which
  unsigned long long rdev = 0;   // of a device its number
  std::string target;            // native, of a symbolic link
  unsigned int names = 1;        // of its file in the job
  unsigned long long size = 0;   // of the content, or of the target; 0 for a directory
  unsigned long long space = 0;  // bytes that it took on its disk
  long long mtime = 0;           // seconds since 1970
  long long atime = 0;
  std::vector<std::pair<std::string, std::string>> extended;  // POSIX ACLs among them
};

// The content of a file of a job, at any position. Before its first byte is given the whole content
// is read once and all its checksums are compared, as a restore does; so no byte of a damaged file
// is ever given. A small file is held from then on, of a larger one the places of its ranges and of
// its compression frames: a read then costs what it asks for, and no more than a frame beside it.
// May be used by several threads.
class View_File {
 public:
  virtual ~View_File() = default;

  // Reads up to `size` bytes from `offset`; fewer only at the end of the file. -1 on failure, with
  // `why` set. While the content is checked `go_on`, which may be empty, is asked again and again,
  // and false ends the call with -1 and an empty `why`.
  virtual long long read(unsigned long long offset, char* data, std::size_t size,
                         const std::function<bool()>& go_on, std::string& why) = 0;

  // Finds the first byte from `offset` on that lies in a stretch of data, or in a hole if `hole` is
  // set; the end of the file counts as a hole. False, as read() fails, or with `out` set to the
  // size where there is none.
  virtual bool seek(unsigned long long offset, bool hole, const std::function<bool()>& go_on,
                    unsigned long long& out, std::string& why) = 0;
};

// Entries have numbers: View_Tree::root is the directory that holds `home`, `X` for a volume `X:`,
// and so on, as a restore lays them out. The same job always has the same numbers. All operations
// may be called from several threads.
//
// Nothing is believed that the media doesn't confirm: the block of an entry must have its name,
// size and kind, and so must that of its directory. A failure gives `why`, which names the place.
class Job_View {
 public:
  virtual ~Job_View() = default;

  // Reads the catalogs of `job`, damaged ones as far as that goes; see View_Tree::build() for the
  // sinks. The store must outlive the view. Its operations are never called by two threads at once;
  // of the readers that it opens each is used by one thread at a time.
  static std::shared_ptr<Job_View> open(IPiece_Store& store, const Job_Pieces& job,
                                        const Fault_Sink& on_fault, const Problem_Sink& on_problem);

  virtual const View_Tree& tree() const = 0;

  // The attributes of an entry, from its media or from a cache of bounded size. A further name has
  // those of the first one; see View_Tree::content_of(). Null, with `why` set, on failure.
  virtual std::shared_ptr<const View_Attributes> attributes(View_Tree::Number number,
                                                            std::string& why) = 0;

  // The content of a file by any of its names; null, with `why` set, if it is no file or its block
  // can't be found. The view must outlive it.
  virtual std::shared_ptr<View_File> open_file(View_Tree::Number number, std::string& why) = 0;
};

}  // namespace MTF
