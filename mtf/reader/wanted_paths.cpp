#include "mtf/reader/wanted_paths.h"

#include <algorithm>

#include "platform/native_path.h"

namespace MTF {
namespace {

// The steps that lead from a path of `length` bytes down to `path`.
unsigned int steps_below(const std::string& path, std::size_t length) {
  return static_cast<unsigned int>(
      std::count(path.begin() + static_cast<std::ptrdiff_t>(length), path.end(), '\\'));
}

}  // namespace

bool is_below(const std::string& path, const std::string& top) {
  if (path.compare(0, top.size(), top) != 0) return false;
  return path.size() == top.size() || path[top.size()] == '\\';
}

Wanted_Paths::Wanted_Paths(const std::vector<std::string>& paths, unsigned int depth)
    : paths_(paths), depth_(depth) {
  for (const std::string& path : paths_) {
    std::string system;
    tops_.push_back({platform::system_path(path, system) ? system : std::string(), false});
  }
}

bool Wanted_Paths::take(const std::string& path) {
  bool wanted = tops_.empty() && steps_below(path, 0) <= depth_;
  for (Top& top : tops_) {
    if (top.path.empty() || !is_below(path, top.path)) continue;
    top.met = true;
    wanted = wanted || steps_below(path, top.path.size()) <= depth_;
  }
  return wanted;
}

bool Wanted_Paths::lie_below(const std::string& path) const {
  return std::any_of(tops_.begin(), tops_.end(),
                     [&](const Top& top) { return is_below(top.path, path); });
}

std::vector<std::string> Wanted_Paths::not_met() const {
  std::vector<std::string> out;
  for (std::size_t i = 0; i < tops_.size(); ++i) {
    if (!tops_[i].met) out.push_back(paths_[i]);
  }
  return out;
}

}  // namespace MTF
