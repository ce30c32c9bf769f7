#include "platform/source_root.h"

#include <stdlib.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string_view>

#include "platform/native_path.h"

namespace platform {
namespace {

struct Root {
  std::string real;
  int users = 0;
};

// By native path without a trailing slash, so the machine's root directory is the empty text.
struct Table {
  std::shared_mutex mutex;
  std::map<std::string, Root, std::less<>> roots;
  std::atomic<unsigned long long> version{0};
};

Table& table() {
  static Table table;
  return table;
}

// The path without links; false with errno.
bool resolve(const std::string& native, std::string& real) {
  const std::unique_ptr<char, decltype(&::free)> path(::realpath(native.c_str(), nullptr), ::free);
  if (!path) return false;
  real = path.get();
  if (real == "/") real.clear();
  return true;
}

}  // namespace

Source_Root::Source_Root(const std::string& system_path, bool follow) {
  if (!native_path(system_path, native_)) return;
  if (native_ == "/") native_.clear();
  const std::size_t leaf = follow || native_.empty() ? native_.size() : native_.rfind('/');
  std::string real;
  if (!resolve(leaf == 0 ? "/" : native_.substr(0, leaf), real)) return;
  Table& all = table();
  const std::lock_guard<std::shared_mutex> guard(all.mutex);
  Root& root = all.roots[native_];
  root.real = real.append(native_, leaf, std::string::npos);
  ++root.users;
  ++all.version;
  added_ = true;
}

Source_Root::~Source_Root() {
  if (!added_) return;
  Table& all = table();
  const std::lock_guard<std::shared_mutex> guard(all.mutex);
  const auto root = all.roots.find(native_);
  if (--root->second.users == 0) all.roots.erase(root);
  ++all.version;
}

Place find_source(const std::string& native, std::string& real) {
  const std::string_view path(native.data(), native == "/" ? 0 : native.size());
  Table& all = table();
  const std::shared_lock<std::shared_mutex> guard(all.mutex);
  if (all.roots.empty()) return Place::outside;
  for (std::size_t end = path.size();; end = path.rfind('/', end - 1)) {
    const auto root = all.roots.find(path.substr(0, end));
    if (root != all.roots.end()) {
      real.assign(root->second.real).append(path.substr(end));
      if (real.empty()) real = "/";
      return end == path.size() ? Place::source : Place::below_source;
    }
    if (end == 0 || path[0] != '/') return Place::outside;
  }
}

unsigned long long source_roots_version() {
  return table().version;
}

}  // namespace platform
