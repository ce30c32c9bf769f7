// Where the pieces of jobs are kept. A kind of storage is one class that implements IStorage, with
// a sink for its pieces, and a line in make_storage(); nothing else knows of it.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "mtf/reader/piece_store.h"

namespace agent {

// A piece that is being written. One that goes away before finish() is dropped.
class IPiece_Sink {
 public:
  virtual ~IPiece_Sink() = default;

  // Appends all of `size` bytes from `data`, which the caller may reuse at once.
  virtual bool write(const char* data, std::size_t size) = 0;

  // Ends the piece and waits until the storage has all of it, as far as it can without its name.
  // After a failure nothing is left of the piece.
  virtual bool finish() = 0;

  // The line for the user of what failed.
  virtual const std::string& error() const = 0;
};

// A piece and its length in bytes.
struct Stored_Piece {
  std::string name;
  unsigned long long size = 0;
};

// Failures come with a line for the user in `error`. One thread opens, lists, names and removes;
// create() and open(), and what they give, may be used from several, and not beyond the life of the
// storage.
//
// As an IPiece_Store it gives pieces that have their name, and no others.
class IStorage : public MTF::IPiece_Store {
 public:
  // What error texts call it: "storage '/srv/backup'".
  virtual std::string title() const = 0;

  // The directory of this machine that holds the pieces, as a native path; empty where there is
  // none. A walk leaves it out.
  virtual std::string directory() const = 0;

  // Opens the storage for reading; it must be there.
  virtual bool open_for_reading(std::string& error) = 0;

  // Opens it for a job that writes or removes pieces of `stem`, and holds the stem's lock from then
  // on, until the object goes. What a job that was killed left unfinished is removed. `make` makes
  // a storage that is missing, a directory only below one that is there.
  virtual bool open_for_job(const std::string& stem, bool make, std::string& error) = 0;

  // Takes away locks of `stem` whose holders are dead, as far as that can be told; `lines` tells of
  // each. False, with `error`, if one stays.
  virtual bool unlock(const std::string& stem, std::vector<std::string>& lines,
                      std::string& error) = 0;

  // The names of what open_for_job() removed.
  virtual const std::vector<std::string>& cleared() const = 0;

  // A text that is the same for every way that leads to this storage, and no other's. It can be
  // part of a file's name.
  virtual bool identity(std::string& out, std::string& error) const = 0;

  // All pieces that have their name, in any order.
  virtual bool list(std::vector<Stored_Piece>& pieces, std::string& error) = 0;

  // Starts the piece `name`, which must not be there; it has no name until name_pieces(). Null on
  // failure.
  virtual std::unique_ptr<IPiece_Sink> create(const std::string& name, std::string& error) = 0;

  // Opens a finished piece for reading, whether or not it has its name yet: from where it is kept,
  // not from what this machine remembers of it, as far as that can be had. Null on failure.
  virtual std::unique_ptr<MTF::IRandom_Reader> reopen(const std::string& name,
                                                      std::string& error) = 0;

  // Gives the finished pieces of a job their names, in this order, and returns when that will last.
  // Until then a job that is killed leaves nothing that passes for whole. After a failure any of
  // them may have its name.
  virtual bool name_pieces(const std::vector<std::string>& names, std::string& error) = 0;

  // Removes pieces, in this order, whether or not they have their name. False also for one that
  // isn't there; those behind it then stay.
  virtual bool remove(const std::vector<std::string>& names, std::string& error) = 0;

  bool pieces(std::vector<std::string>& names, std::string& error) final;
};

// The storage that `text`, the value of --storage, stands for: a directory, or rclone:REMOTE:PATH.
// Nothing is looked at yet. Working files are made in the directory `tmp`, or in the usual one
// where it is empty. Null, with a line for the user, if `text` can't stand for a storage.
std::unique_ptr<IStorage> make_storage(const std::string& text, std::string& error,
                                       const std::string& tmp = {});

// Bytes of all pieces of each job, by its stem and number.
using Job_Sizes = std::map<std::pair<std::string, unsigned int>, unsigned long long>;
bool find_sizes(IStorage& storage, Job_Sizes& sizes, std::string& error);

// The highest sequence number of a job of `stem`; 0 if there is none.
bool newest_seq(IStorage& storage, const std::string& stem, unsigned int& seq, std::string& error);

// Removes all pieces of a job, the catalogs first: what is left after a failure then doesn't pass
// for a whole job. False, with `error`, also if there is no such job.
bool remove_job(IStorage& storage, const std::string& stem, unsigned int seq, std::string& error);

// Puts the medias ahead of the catalogs: a job whose pieces appear in this order isn't complete
// before its last one is there.
void sort_catalogs_last(std::vector<std::string>& names);

}  // namespace agent
