// What the further names of files lead to, in one catalog that is made again.
#pragma once

#include <optional>
#include <string>
#include <unordered_map>

#include "mtf/reader/jobs.h"

namespace MTF {

// A catalog marks the first one of several names, which no media does: there only a further name
// tells it, and that stands behind it. So what further names lead to is read first.
class First_Names {
 public:
  // Reads the further names on the media of `channel`.
  void find(IPiece_Store& store, const Job_Pieces& job, unsigned long long channel);

  // True if a further name on the media leads to `path`, in system form.
  bool has(const std::string& path) const;

  // The catalog has the file `number` under `path`. Remembered if a further name leads there.
  void note(const std::string& path, unsigned long long number);

  // The number noted.
  std::optional<unsigned long long> number_of(const std::string& path) const;

 private:
  std::unordered_map<unsigned long long, std::optional<unsigned long long>> numbers_;  // by hashes
};

}  // namespace MTF
