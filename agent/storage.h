// The storage of a command: its directory, the jobs in it and the lock of a stem.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "platform/storage_directory.h"

namespace agent {

// The highest sequence number of a job: the blocks of a media hold it in 16 bits.
constexpr unsigned int last_seq = 65535;

// A stem is part of file names, in which a dot ends it: letters, digits, `_` and `-`, up to
// longest_stem of them. Returns what is wrong with `stem`, empty if nothing is.
constexpr std::size_t longest_stem = 200;
std::string stem_fault(const std::string& stem);

// Failures come with a line for the user in `error`.
class Storage {
 public:
  // Opens the storage for reading; its directory must be there.
  bool open(const std::string& path, std::string& error);

  // Opens it for a job that writes or removes pieces of `stem`, and holds the stem's lock from then
  // on. What a job that was killed left unfinished goes. `make` makes a missing directory
  // below one that is there.
  bool open_for_job(const std::string& path, bool make, const std::string& stem,
                    std::string& error);

  // The highest sequence number of a job of `stem`; 0 if there is none.
  bool newest_seq(const std::string& stem, unsigned int& seq, std::string& error) const;

  // Removes all pieces of a job, the catalogs first: what is left after a failure then doesn't pass
  // for a whole job. False, with `error`, also if there is no such job.
  bool remove_job(const std::string& stem, unsigned int seq, std::string& error) const;

  // Bytes of all pieces of a job.
  unsigned long long job_size(const std::string& stem, unsigned int seq) const;

  // The names of what open_for_job() removed.
  const std::vector<std::string>& cleared() const { return cleared_; }

  const platform::Storage_Directory& directory() const { return directory_; }
  const std::string& path() const { return path_; }

 private:
  bool names_of(const std::string& stem, unsigned int seq, std::vector<std::string>& names,
                std::string& error) const;
  bool remove_unfinished(const std::string& stem, std::string& error);
  std::string fault() const;

  std::string path_;
  platform::Storage_Directory directory_;
  platform::Lock_File lock_;
  std::vector<std::string> cleared_;
};

}  // namespace agent
