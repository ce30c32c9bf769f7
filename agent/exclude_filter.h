// What the user leaves out of a job.
#pragma once

#include <list>
#include <string>
#include <vector>

#include "services/filter.h"

namespace agent {

// Rejects the paths of `excludes` with all below them; the library's own exclude list does that for
// directories only. Rejects too what one of the shell patterns `globs` matches, by its whole native
// path or by its last name.
class Exclude_Filter final : public MTF::IFilter {
 public:
  // `excludes` is in system form.
  Exclude_Filter(const std::list<std::string>& excludes, const std::vector<std::string>& globs)
      : excludes_(excludes), globs_(globs) {}

  // True for one that rejects nothing.
  bool is_empty() const { return excludes_.empty() && globs_.empty(); }

  bool accept(const char* path, bool is_directory) const override;

 private:
  bool matches_glob(const std::string& path) const;

  std::list<std::string> excludes_;
  std::vector<std::string> globs_;
};

}  // namespace agent
