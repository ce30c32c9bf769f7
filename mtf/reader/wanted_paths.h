// The parts of a tree that somebody asked for.
#pragma once

#include <string>
#include <vector>

namespace MTF {

// Holds paths, each with what lies below it down to a depth, and remembers which have been met.
class Wanted_Paths {
 public:
  static constexpr unsigned int any_depth = ~0U;

  // Native or system paths; everything if there are none. At depth 0 nothing below a path is
  // wanted, or nothing but volumes. Keeps the reference.
  explicit Wanted_Paths(const std::vector<std::string>& paths, unsigned int depth = any_depth);

  // True if the system path `path` is wanted; the paths that it is or lies below are then met.
  bool take(const std::string& path);

  // True if one of the paths lies below `path`.
  bool lie_below(const std::string& path) const;

  // The paths that take() has met nothing of.
  std::vector<std::string> not_met() const;

 private:
  struct Top {
    std::string path;  // in system form; empty for one that isn't a path
    bool met;
  };
  const std::vector<std::string>& paths_;
  const unsigned int depth_;
  std::vector<Top> tops_;
};

// True if `path` is `top` or lies below it. Both in system form.
bool is_below(const std::string& path, const std::string& top);

}  // namespace MTF
