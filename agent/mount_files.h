// The files of a mount as the kernel asks for them.
#pragma once

#include <fuse3/fuse_lowlevel.h>

#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "agent/console.h"
#include "agent/mounted_jobs.h"

namespace agent {

// An entry of a job.
struct Mount_Place {
  std::shared_ptr<MTF::Job_View> view;
  unsigned int seq = 0;
  MTF::View_Tree::Number number = 0;

  const MTF::View_Node& node() const { return view->tree().node(number); }
};

// A file of a job that somebody has open.
struct Mount_File {
  Mount_Place place;  // holds what `file` needs
  std::shared_ptr<MTF::View_File> file;
};

// Inodes have numbers that stay: the root has FUSE_ROOT_ID, and each of its entries its key. An
// entry of a job has the key of the job in the upper 32 bits. The operations give 0 or an errno,
// and may be called from several threads. They tell why an entry of a job can't be read, once for
// each entry.
class Mount_Files {
 public:
  // Keeps the references.
  Mount_Files(Mounted_Jobs& jobs, Console& console) : jobs_(jobs), console_(console) {}

  // Finds `name` in a directory. Of a name that a job doesn't hold `out` has no inode.
  int lookup(fuse_ino_t directory, const std::string& name, fuse_entry_param& out);

  int attributes(fuse_ino_t inode, struct stat& out);

  // The target of a link.
  int target(fuse_ino_t inode, std::string& out);

  // Null for an entry of the root.
  int extended(fuse_ino_t inode, std::shared_ptr<const MTF::View_Attributes>& out);

  int open(fuse_ino_t inode, Mount_File& out);

  // As MTF::View_File has them, but for the result: `got` and `found`.
  int read(const Mount_File& file, off_t offset, char* data, std::size_t size,
           const std::function<bool()>& go_on, std::size_t& got);
  int seek(const Mount_File& file, off_t offset, bool hole, const std::function<bool()>& go_on,
           off_t& found);

  // The entries of the root directory.
  std::vector<Root_Entry> root() { return jobs_.root(); }
  void describe(const Root_Entry& entry, fuse_entry_param& out);

  // Finds the job and the entry of an inode that isn't the root.
  int find(fuse_ino_t inode, Mount_Place& out);

  // An entry of a job, without its attributes and with them. What can't be read has no inode then.
  void name(const Mount_Place& place, fuse_entry_param& out);
  int describe(const Mount_Place& place, fuse_entry_param& out);

  fuse_ino_t parent(const Mount_Place& place) const;

 private:
  int fail(const Mount_Place& place, const std::string& why);
  bool find_root(fuse_ino_t inode, Root_Entry& out);

  Mounted_Jobs& jobs_;
  Console& console_;
  std::mutex mutex_;
  std::set<fuse_ino_t> told_;
};

}  // namespace agent
