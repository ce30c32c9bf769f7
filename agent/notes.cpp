#include "agent/notes.h"

#include <cstddef>
#include <new>

#include "agent/text.h"

namespace agent {
namespace {

constexpr std::size_t remembered_lines = 1000;
constexpr unsigned long long most_of_a_kind = 10;

}  // namespace

Notes::~Notes() {
  try {
    flush();
  } catch (const std::bad_alloc&) {
    // Short memory: the counts are lost, but a line of each kind was shown.
  }
}

void Notes::add(const std::string& line, const std::string& kind) {
  if (is_shown(line, kind)) console_.note(line);
}

void Notes::flush() {
  const std::lock_guard<std::mutex> guard(mutex_);
  for (const auto& [line, count] : repeats_) {
    if (count != 0) console_.note(line + " (" + count_text(count, "more time") + ")");
  }
  for (const auto& [kind, count] : kinds_) {
    if (count <= most_of_a_kind) continue;
    console_.note("... and " + grouped_text(count - most_of_a_kind) + " more: " + kind);
  }
  repeats_.clear();
  kinds_.clear();
}

bool Notes::is_shown(const std::string& line, const std::string& kind) {
  const std::lock_guard<std::mutex> guard(mutex_);
  const auto found = repeats_.find(line);
  if (found != repeats_.end()) {
    ++found->second;
    return false;
  }
  if (!all_ && has_enough(kind)) return false;
  if (repeats_.size() < remembered_lines) repeats_[line] = 0;
  return true;
}

// Counts a line of `kind`; true if ten came before.
bool Notes::has_enough(const std::string& kind) {
  const auto found = kinds_.find(kind);
  if (found != kinds_.end()) return ++found->second > most_of_a_kind;
  if (kinds_.size() < remembered_lines) kinds_[kind] = 1;
  return false;
}

}  // namespace agent
