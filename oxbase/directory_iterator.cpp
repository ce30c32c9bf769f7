#include "oxbase/directory_iterator.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "oxbase/name_finder.h"

namespace oxbase {

bool path_less(std::string_view a, std::string_view b) {
  const std::size_t shorter = a.size() < b.size() ? a.size() : b.size();
  std::size_t at = 0;
  // Names of one directory, and its paths all the more, have much in common.
  constexpr std::size_t stride = 8;
  while (at + stride <= shorter && std::memcmp(&a[at], &b[at], stride) == 0) at += stride;
  while (at < shorter && a[at] == b[at]) ++at;
  if (at == a.size() || at == b.size()) return at < b.size();
  if (a[at] == '\\' || b[at] == '\\') return a[at] == '\\';
  return static_cast<unsigned char>(a[at]) < static_cast<unsigned char>(b[at]);
}

bool operator<(const Directory_Entry_T<char>& a, const Directory_Entry_T<char>& b) {
  const bool a_dir = a.is_directory();
  return a_dir == b.is_directory() ? path_less(a.name, b.name) : !a_dir;
}

std::vector<Directory_Entry_T<char>> put_in_order(std::vector<Directory_Entry_T<char>>& entries) {
  using Entry = Directory_Entry_T<char>;
  const auto same = [](const Entry& a, const Entry& b) {
    return a.is_directory() == b.is_directory() && a.name == b.name;
  };
  std::sort(entries.begin(), entries.end());
  entries.erase(std::unique(entries.begin(), entries.end(), same), entries.end());
  const auto dirs = std::partition_point(entries.begin(), entries.end(),
                                         [](const Entry& entry) { return !entry.is_directory(); });
  if (dirs == entries.end()) return {};
  Name_Finder is_directory(dirs, entries.end(),
                           [](const Entry& entry) { return std::string_view(entry.name); });
  std::vector<Entry> dropped;
  auto kept = entries.begin();
  for (auto file = kept; file != dirs; ++file) {
    if (is_directory(file->name)) {
      dropped.push_back(std::move(*file));
    } else {
      if (kept != file) *kept = std::move(*file);
      ++kept;
    }
  }
  entries.erase(kept, dirs);
  return dropped;
}

int Directory_Reader::open(const std::string& path, bool /*reparse_points*/,
                           unsigned int /*reparse_mask*/, bool follow) {
  return handle_.open(path, follow);
}

int Directory_Reader::read(Directory_Entry_T<char>& entry, bool& end) {
  entry.reparse_type = 0;
  return handle_.next(entry.name, entry.stat, end);
}

Directory_Iterator_T<char>::Directory_Iterator_T(const char* path, bool reparse_points,
                                                 unsigned int reparse_mask, bool follow) {
  if (!path || !*path) return;
  handle_.reset(new (std::nothrow) handle_t);
  if (!handle_) {
    ec_ = ENOMEM;
    return;
  }
  ec_ = handle_->reader.open(path, reparse_points, reparse_mask, follow);
  if (ec_ == 0) ++*this;
  if (ec_ != 0) handle_.reset();
}

Directory_Iterator_T<char>& Directory_Iterator_T<char>::operator++() {
  if (at_end()) return *this;
  ec_ = handle_->reader.read(handle_->entry, handle_->end);
  if (ec_ != 0) handle_->end = true;
  return *this;
}

bool Directory_Iterator_T<char>::operator==(const Directory_Iterator_T& other) const {
  return handle_ == other.handle_ || (at_end() && other.at_end());
}

}  // namespace oxbase
