// Gives the pieces of a job their names.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "agent/storage.h"

namespace agent {

// The pieces of one job. They get their names together, when the whole job has succeeded: so one
// that fails, or is killed before that, has no piece that passes for whole.
class Piece_Namer {
 public:
  // `storage` must outlive it.
  explicit Piece_Namer(IStorage& storage) : storage_(storage) {}

  IStorage& storage() const { return storage_; }

  // The piece `name` is finished. From any thread.
  void add(const std::string& name);

  // Gives all pieces their names, the catalogs last. False, with an error text, if that fails; any
  // of them may then have its name.
  bool name_all(std::string& error);

 private:
  IStorage& storage_;
  std::mutex mutex_;
  std::vector<std::string> names_;
};

}  // namespace agent
