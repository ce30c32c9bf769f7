// The sources of the jobs that run.
//
// Above a source links are followed: whoever named it may have come by one. Below it none is, in no
// place of the path, so that a link that takes the place of a directory while a job runs can't lead
// out of the source.
#pragma once

#include <string>

namespace platform {

// Makes a system path the root of a source for as long as the object lives. Roots may be nested, or
// the same for several jobs. The links that lead to the root are resolved here, once; where they
// can't be, nothing becomes a root. Any thread.
class Source_Root {
 public:
  // A path that is itself a link leads to what it holds only with `follow`.
  Source_Root(const std::string& system_path, bool follow);
  ~Source_Root();
  Source_Root(const Source_Root&) = delete;
  Source_Root& operator=(const Source_Root&) = delete;

 private:
  std::string native_;  // without a trailing slash
  bool added_ = false;
};

// Where a native path lies.
enum class Place { outside, source, below_source };

// Tells where `native` lies, any thread. In or below a source `real` becomes its path with no link
// above the source.
Place find_source(const std::string& native, std::string& real);

// Changes with each root that comes or goes.
unsigned long long source_roots_version();

}  // namespace platform
