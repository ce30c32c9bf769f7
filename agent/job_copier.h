// Copies jobs from one storage to another, byte for byte.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "agent/storage.h"
#include "mtf/reader/jobs.h"

namespace agent {

// For the jobs of one name. The target is locked for it, and the source, so that nothing changes.
class Job_Copier {
 public:
  enum class Outcome {
    copied,
    there,    // the target has the job already
    refused,  // the target has another job of the number; nothing was touched
    failed,
  };

  // Both must outlive it. `go_on` is asked again and again: false ends a copy, which then fails.
  Job_Copier(IStorage& from, IStorage& to, std::function<bool()> go_on)
      : from_(from), to_(to), go_on_(std::move(go_on)) {}

  // Looks at what the two hold of `stem`. False, with a line for the user, if that fails.
  bool open(const std::string& stem, std::string& error);

  // Bytes of the pieces of a job that the target lacks, and those that were copied so far; the
  // latter from any thread.
  unsigned long long missing_bytes(unsigned int seq) const;
  unsigned long long copied_bytes() const { return copied_; }

  // Copies job `seq`. Each piece is read back from the target and compared by a 128-bit hash before
  // it gets its name; the names come last, those of the catalogs behind those of the medias, so
  // that a copy which is killed leaves no job. Nothing is left of one that failed.
  //
  // A job that is there already is compared: the names and sizes of its pieces and, byte for byte,
  // its catalogs, which have the address and date of every file. If it isn't complete there, all
  // its pieces are compared byte for byte and the missing ones are copied. `error` is a line for
  // the user if the job is refused or fails.
  Outcome copy(unsigned int seq, std::string& error);

 private:
  using Pieces = std::map<std::string, unsigned long long>;  // sizes by name
  using By_Seq = std::map<unsigned int, Pieces>;

  static bool find(IStorage& storage, const std::string& stem, By_Seq& out, std::string& error);
  std::vector<std::string> missing(unsigned int seq) const;
  bool is_same(const std::string& name, bool& same, std::string& error) const;
  Outcome compare(unsigned int seq, std::string& error) const;
  bool copy_piece(const std::string& name, std::string& error);
  bool hash(MTF::IRandom_Reader& reader, const std::string& name,
            const std::function<bool(const char* data, std::size_t size)>& take, std::string& hash,
            std::string& error) const;

  IStorage& from_;
  IStorage& to_;
  const std::function<bool()> go_on_;
  By_Seq source_, target_;
  std::atomic<unsigned long long> copied_{0};
};

}  // namespace agent
