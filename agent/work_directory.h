// The directory that a job has its working files in.
#pragma once

#include <string>
#include <vector>

#include "agent/storage.h"
#include "platform/held_directory.h"

namespace agent {

// Lies in a root that jobs of every storage may share, and goes with the object. One that a killed
// job left is told from that of a living job by its lock.
class Work_Directory {
 public:
  Work_Directory() = default;
  ~Work_Directory() { remove(); }
  Work_Directory(const Work_Directory&) = delete;
  Work_Directory& operator=(const Work_Directory&) = delete;

  // Removes what killed jobs left in the directory `root`, and makes the one of the job `id` there;
  // no other living job may have that id. A missing `root` is made. One where another user might
  // put something in place of the job's files is refused. With `closed` it is made the user's
  // alone. False, with a line for the user in `error`.
  bool open(const std::string& root, bool closed, const std::string& id, std::string& error);

  // Deletes the directory with all in it; true if none is open. Leaves errno.
  bool remove() { return held_.remove(); }

  // The native path; empty where none is open.
  const std::string& path() const { return held_.path(); }

  // The paths of the directories that open() removed.
  const std::vector<std::string>& cleared() const { return cleared_; }

 private:
  void clear(const std::string& root);

  platform::Held_Directory held_;
  std::vector<std::string> cleared_;
};

// Opens `work` for a command that holds the lock of `stem` on `storage`: in `tmp`, or in the
// default place where that is empty. False, with a line for the user in `error`.
bool open_work_directory(const IStorage& storage, const std::string& stem, const std::string& tmp,
                         Work_Directory& work, std::string& error);

}  // namespace agent
