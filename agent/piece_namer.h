// Gives the pieces of a job their names.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "platform/storage_directory.h"

namespace agent {

// What the name of a piece ends in until it gets its own.
inline constexpr const char* part_ending = ".part";

// The pieces of one job. They get their names together, when the whole job has succeeded: so one
// that fails, or is killed before that, has no piece that passes for whole.
class Piece_Namer {
 public:
  // `directory` must outlive it.
  explicit Piece_Namer(const platform::Storage_Directory& directory) : directory_(directory) {}

  const platform::Storage_Directory& directory() const { return directory_; }

  // The piece `name` is finished, as NAME.part, and its data is on the disk. From any thread.
  void add(const std::string& name);

  // Gives all pieces their names, the catalogs last, and returns when these are on the disk. False,
  // with an error text, if that fails; any of them may then have its name.
  bool name_all(std::string& error);

 private:
  const platform::Storage_Directory& directory_;
  std::mutex mutex_;
  std::vector<std::string> names_;
};

}  // namespace agent
