// What a mount shows: the complete jobs of a name.
#pragma once

#include <chrono>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "agent/console.h"
#include "mtf/reader/job_view.h"

namespace agent {

// An entry of the root directory.
struct Root_Entry {
  std::string name;
  unsigned int seq;        // the job that it is, or leads to
  bool is_link;            // `latest`, or a date
  unsigned long long key;  // the same for the same name, above 1 and below 2^32
};

// The key of a job's own directory.
unsigned long long job_key(unsigned int seq);

// Every operation may be called from several threads.
class Mounted_Jobs {
 public:
  // `store` and `console` must outlive it. The store is used by one thread at a time.
  Mounted_Jobs(MTF::IPiece_Store& store, const std::string& stem, Console& console)
      : store_(store), stem_(stem), console_(console) {}

  // Looks for the jobs of the name. False, with `error` set, if they can't be listed.
  bool look(std::string& error);

  // How many jobs there are.
  std::size_t count();

  // The newest job; 0 if there is none.
  unsigned int newest();

  // The root directory as it is now; looks again if the last look is some seconds old.
  std::vector<Root_Entry> root();

  // Finds the entry `name` of the root.
  bool find(const std::string& name, Root_Entry& out);

  // Finds an entry of the root by its key.
  bool find(unsigned long long key, Root_Entry& out);

  // When a job was made, in seconds since 1970; 0 if it isn't known.
  long long time_of(unsigned int seq);

  // The tree of a job, read when it is first asked for; null, with `why` set, if the job is gone.
  std::shared_ptr<MTF::Job_View> view(unsigned int seq, std::string& why);

 private:
  // The storage for several threads.
  class Locked_Store final : public MTF::IPiece_Store {
   public:
    explicit Locked_Store(MTF::IPiece_Store& store) : store_(store) {}
    bool pieces(std::vector<std::string>& names, std::string& error) override;
    std::unique_ptr<MTF::IRandom_Reader> open(const std::string& name, std::string& error) override;

   private:
    MTF::IPiece_Store& store_;
    std::mutex mutex_;
  };

  struct Shown_Job {
    MTF::Job_Pieces pieces;
    long long time;  // 0 if it isn't known
  };

  void look_again();
  std::vector<Root_Entry> entries() const;
  std::shared_ptr<MTF::Job_View> open(unsigned int seq, const MTF::Job_Pieces& pieces);

  Locked_Store store_;
  const std::string stem_;
  Console& console_;
  std::mutex mutex_;  // of all below
  std::map<unsigned int, Shown_Job> jobs_;
  std::chrono::steady_clock::time_point looked_;

  std::mutex opening_;  // held while a tree is read
  struct Open_View {
    unsigned int seq;
    std::shared_ptr<MTF::Job_View> view;
  };
  std::list<Open_View> views_;  // the one used last is the first
};

}  // namespace agent
