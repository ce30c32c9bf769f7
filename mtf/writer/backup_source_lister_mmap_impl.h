// The store of the source lister: a record for each entry in a mapped file, so that a tree of any
// size fits.
#pragma once

#include <ace/Condition_Thread_Mutex.h>
#include <ace/Thread_Mutex.h>

#include <atomic>
#include <functional>
#include <list>
#include <map>
#include <set>
#include <string>

#include "mtf/writer/backup_source_lister.h"
#include "services/mmap_pool.h"

namespace MTF {

// One record of the store. It never moves and goes with the store.
struct Cache_Node {
  // What a node with a name of `size` bytes takes.
  static unsigned long long node_size(std::size_t size) { return sizeof(Cache_Node) + size + 1; }

  // The full path of a source or a directory, the leaf name of anything else. It stands behind the
  // record and ends with a NUL.
  const char* name() const { return reinterpret_cast<const char*>(this + 1); }
  // The node was made with room for `text`.
  void set_name(const std::string& text);

  _stat64 stat;
  unsigned int reparse_type = 0;
  unsigned char is_source = 0;
};

// The order of the nodes' names in a depth-first listing; false if either is null.
bool node_less(const Cache_Node* a, const Cache_Node* b);

// A directory goes from walk_queue_ to one walker, then waits, with what was found in it, until it
// is at the head of pending_ and moves to ready_, where the reader finds it. The one that the
// reader will need first is walked first.
class Backup_Source_Lister_MMap_Impl : public Backup_Source_Lister::Impl {
 public:
  using Entry = Backup_Source_Lister::Entry;

  enum State : int { not_walked, being_walked, walked };

  struct Directory {
    Cache_Node* node = nullptr;
    int state = not_walked;
    std::list<Cache_Node*> files;  // the other entries; only its walker uses them until `walked`
    std::list<Cache_Node*> child_dirs;
  };

  // Results of enqueue_one().
  enum Step : int {
    dropped = -1,  // the head's walk failed, and it is left out
    moved = 0,
    head_waits = 3,
    none_pending = 4,
  };

  // `cache_dir` is a native directory, which is made if it isn't there. With one that can't be made
  // there is no room for anything. No directory is begun while more than `most_ahead` entries wait
  // for the reader, unless the reader waits too; their links take 16 MB.
  explicit Backup_Source_Lister_MMap_Impl(const std::string& cache_dir,
                                          std::size_t most_ahead = 500000);

  bool add_source(const source_entry& source) override;
  int next_directory(std::string& dir) override;
  bool walk_end(const std::string& dir, bool ok) override;
  // 1 for an entry that isn't a directory, 0 for one that is, -1 if there is no room.
  int add_entry(const std::string& dir, const Entry& entry) override;
  int next_entry(std::string& dir, Entry& entry, bool& is_source) override;
  void end_reading() override;

  int add_file(const std::string& dir, const Entry& entry);
  int add_sub_directory(const std::string& dir, const Entry& entry);

  // A zeroed node of `size` bytes, or null. Each thread takes its nodes out of a piece of its own.
  Cache_Node* make_node(unsigned long long size);

  // The record of a directory, which stays where it is until it is removed, or null. Looks it up
  // under the lock.
  Directory* get_directory_i(const std::string& dir);
  void remove_directory(const std::string& dir);

  // Gives the first directory that waits for a walker; 0, or 4 if none does. The lock is held.
  int dequeue_sub_directory(std::string& dir);

  // Moves the head of pending_ one step towards the reader; a directory that isn't walked yet only
  // with `force`. Gives a Step. The lock is held.
  int enqueue_one(bool force);

 private:
  using Compare = std::function<bool(const Cache_Node*, const Cache_Node*)>;

  Directory* find_directory(const std::string& dir);
  bool take_piece(unsigned long long size);
  int take_directory(std::string& dir);
  bool is_far_ahead() const;
  void list_head(Directory& directory);
  int take_ready();
  void give(const Cache_Node& node, std::string& dir, Entry& entry, bool& is_source);
  void count_given(const Entry& given);

  ACE_Thread_Mutex lock_;  // guards all below but what they say themselves, and `files`
  std::list<Cache_Node*> ready_;
  // By full path, from discovery to the move to ready_.
  std::map<std::string, Directory, std::less<>> directories_;
  std::set<Cache_Node*, Compare> walk_queue_{node_less};
  std::list<Cache_Node*> pending_;
  int walkers_ = 0;  // threads that are in a directory
  const std::size_t most_ahead_;
  std::size_t ahead_ = 0;  // entries of walked directories that the reader hasn't begun to take
  bool reader_waits_ = false;
  ACE_Condition<ACE_Thread_Mutex> directory_ready_{lock_};
  ACE_Condition<ACE_Thread_Mutex> entry_ready_{lock_};
  MMap_Pool pool_;
  std::string last_dir_;         // of the last directory given; the reader's alone
  const unsigned long long id_;  // of this store, never given twice
  // Records that went while they may have been walked; what a thread remembers may be one of them.
  std::atomic<unsigned long long> removals_{0};
  std::list<Cache_Node*> taken_;  // what was ready when the reader last looked; the reader's alone
  unsigned long long given_ = 0;  // about the bytes given since the pool was unloaded; the same
  bool broken_ = false;           // memory was too short to give a directory: the walk can't end
};

}  // namespace MTF
