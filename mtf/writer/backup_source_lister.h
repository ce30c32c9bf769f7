// Scans the sources of a job with several threads and gives what they find in the order of a walk
// by one.
#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "oxbase/directory_iterator.h"
#include "services/source_list.h"
#include "services/thread_start.h"

class ACE_Log_Msg_Callback;

namespace MTF {

// Walker threads read directories in any order and put what they find into a store; one reader
// takes the entries out with next_entry(): a directory, its files, then its sub-directories, depth
// first. Walkers don't wait for the reader. The order doesn't depend on their timing.
//
// A directory that can't be read to its end, or for which the store has no room, is left out with
// all in it, unless Named_In leads on from there.
class Backup_Source_Lister : public Safe_Start<ACE_Task_Base> {
 public:
  using Entry = oxbase::Directory_Entry_T<char>;
  class Impl;

  // Results of next_directory() and next_entry().
  enum Result : int {
    found = 0,
    at_end = 4,  // nothing is left and nothing can come
  };

  // All of them may be empty. They run on the walker threads, several at once.
  //   Filter    gets the full path of an entry; false drops the entry with all in it
  //   On_Error  is told of a directory that failed, with the errno
  //   Map_Path  gives the path to open for a directory
  //   Named_In  gives entries of a directory that failed which are known without reading it; with
  //             one or more, the directory and what was read of it are kept
  using Filter = std::function<bool(const std::string&, const Entry&)>;
  using On_Error = std::function<bool(const std::string&, int)>;
  using Map_Path = std::function<std::string(const std::string&)>;
  using Named_In = std::function<std::vector<Entry>(const std::string&)>;

  // `threads` below 1 counts as 1.
  Backup_Source_Lister(std::unique_ptr<Impl> impl, int threads, Filter filter, On_Error on_error,
                       Map_Path map_path, Named_In named_in = {});
  // Waits for all threads. They go to the end of the tree, unless the reader stopped before its own
  // end: then each ends with the entry that it is at.
  ~Backup_Source_Lister() override;

  using ACE_Task_Base::open;
  // Starts the walkers, whose lines go where those of this thread go. False for a null store, an
  // empty list, a source that the store has no room for, or threads that can't be started.
  bool open(const std::list<source_entry>& sources);

  // The reader's call, of one thread: 0 with an entry, 4 at the end of the stream, -1 on failure.
  // `dir` is the path that holds the entry; for a source, `dir` and the entry's name are its path.
  int next_entry(std::string& dir, Entry& entry, bool& is_source);

  // A walker thread.
  int svc() override;

  // Reads one directory, on a walker thread. Returns 0 or the errno of its failure.
  int walk_dir(const std::string& path);

 private:
  int read_dir(const std::string& path);
  int add_entries(const std::string& path);
  int add_named(const std::string& path);
  bool add_wanted(const std::string& path, std::string& top, const Entry& entry);

  std::unique_ptr<Impl> impl_;
  const int threads_;
  const Filter filter_;
  const On_Error on_error_;
  const Map_Path map_path_;
  ACE_Log_Msg_Callback* log_ = nullptr;
  bool read_to_end_ = false;
  std::atomic<bool> stopped_{false};
  const Named_In named_in_;
};

// The store of what the walkers find, and the order in which it is given. Every operation but
// add_source() may be called from several threads at once, next_entry() from one. A directory
// belongs to the thread that next_directory() gave it to: its entries and its end come from there.
class Backup_Source_Lister::Impl {
 public:
  virtual ~Impl() = default;

  // Takes the next source, before any thread starts. False if there is no room.
  virtual bool add_source(const source_entry& source) = 0;

  // Gives a directory to walk, waiting for one: 0 with `dir` set, 4 when none is left and none can
  // come, any other value on failure.
  virtual int next_directory(std::string& dir) = 0;

  // A walker is done with `dir`; if not `ok`, it is left out with all that was found in it. False
  // if the lock can't be taken.
  virtual bool walk_end(const std::string& dir, bool ok) = 0;

  // A walker found `entry` in `dir`. Negative if there is no room.
  virtual int add_entry(const std::string& dir, const Entry& entry) = 0;

  // As Backup_Source_Lister::next_entry().
  virtual int next_entry(std::string& dir, Entry& entry, bool& is_source) = 0;

  // Nobody calls next_entry() any more: a walker who waits for that goes on.
  virtual void end_reading() {}
};

}  // namespace MTF
