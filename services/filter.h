// The host's filter over the paths of a job.
#pragma once

namespace MTF {

// A job that scans with several threads calls it from all of them at once.
class IFilter {
 public:
  virtual ~IFilter() = default;

  // True keeps `path`, a full path inside the system (`VOLUME\dir\name`). A directory that is
  // rejected is left out with all that it holds. Must not throw.
  virtual bool accept(const char* path, bool is_directory) const = 0;
};

}  // namespace MTF
