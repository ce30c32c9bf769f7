// Storage on another machine, served by rclone: an object for each piece. A media goes there as it
// is made, and a catalog at the end of its job. Until all of them are there and have their length,
// a mark stands beside the job, and it doesn't count.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "agent/catalog_copy.h"
#include "agent/rclone.h"
#include "agent/remote_lock.h"
#include "agent/remote_objects.h"
#include "agent/storage.h"

namespace agent {

class Rclone_Storage final : public IStorage {
 public:
  // `place` is "REMOTE:PATH"; working files without a name are made in the directory `tmp`.
  Rclone_Storage(const std::string& place, const std::string& tmp)
      : place_(place), tmp_(tmp), rclone_(place) {}
  ~Rclone_Storage() override;

  std::string title() const override;
  std::string directory() const override { return {}; }
  bool open_for_reading(std::string& error) override;
  bool open_for_job(const std::string& stem, bool make, std::string& error) override;
  const std::vector<std::string>& cleared() const override { return cleared_; }
  bool unlock(const std::string& stem, std::vector<std::string>& lines,
              std::string& error) override;
  bool identity(std::string& out, std::string& error) const override;
  bool list(std::vector<Stored_Piece>& pieces, std::string& error) override;
  std::unique_ptr<MTF::IRandom_Reader> open(const std::string& name, std::string& error) override;
  std::unique_ptr<IPiece_Sink> create(const std::string& name, std::string& error) override;
  std::unique_ptr<MTF::IRandom_Reader> reopen(const std::string& name, std::string& error) override;
  bool name_pieces(const std::vector<std::string>& names, std::string& error) override;
  bool remove(const std::vector<std::string>& names, std::string& error) override;

 private:
  class Media_Sink;
  class Catalog_Sink;

  // A piece that can be opened, and what was fetched of it.
  struct Known {
    Remote_Object object;
    std::shared_ptr<Catalog_Copy> copy;
  };

  bool look(bool may_be_missing, std::string& error);
  void keep(std::vector<Remote_Object> objects);
  void find_pieces();
  void forget(const std::string& name);
  bool remove_object(const std::string& name, std::string& error);
  bool remove_unfinished(const std::string& stem, std::string& error);
  bool remove_marked();
  bool remove_marked(const Mark& mark, std::string& error);
  bool put_mark(const Mark& mark, std::string& error);
  bool send_catalog(const std::string& name, std::string& error);
  bool check_lengths(const std::vector<std::string>& names, std::string& error);
  bool end_marks(const std::vector<std::string>& names, std::string& error);
  bool fail(const std::string& why, std::string& error) const;

  const std::string place_;
  const std::string tmp_;
  Rclone rclone_;
  Remote_Lock lock_{rclone_};
  std::vector<std::string> cleared_;
  bool is_fresh_ = false;  // opened for reading, and not listed since

  std::mutex mutex_;                                      // for what follows
  std::vector<Remote_Object> objects_;                    // all that the last look saw
  std::map<std::string, Known> known_;                    // the pieces among them that count
  std::vector<Mark> marks_;                               // that this object put
  std::map<std::string, platform::Piece_File> catalogs_;  // finished, and still here
  std::map<std::string, unsigned long long> lengths_;     // of the pieces of this job
};

// Splits "REMOTE:PATH". Only the name of a remote of rclone's own configuration is taken: anything
// else might hold secrets. False, with a line that repeats nothing of it, for such a text.
bool check_place(const std::string& place, std::string& error);

}  // namespace agent
