#include "agent/storage.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "agent/directory_storage.h"
#include "agent/text.h"
#include "services/piece_name.h"

namespace agent {
namespace {

bool is_stem_byte(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '-';
}

bool is_unfinished(const std::string& name, const std::string& stem) {
  const std::size_t ending = std::strlen(part_ending);
  if (name.size() <= ending || name.compare(name.size() - ending, ending, part_ending) != 0) {
    return false;
  }
  MTF::Piece_Name piece;
  return MTF::parse_piece_name(name.substr(0, name.size() - ending), piece) && piece.stem == stem;
}

bool is_catalog(const std::string& name) {
  MTF::Piece_Name piece;
  return MTF::parse_piece_name(name, piece) && piece.catalog;
}

}  // namespace

std::string stem_fault(const std::string& stem) {
  if (stem.empty()) return "the name is empty";
  if (stem.size() > longest_stem) {
    return "the name is longer than " + count_text(longest_stem, "character");
  }
  if (std::all_of(stem.begin(), stem.end(), is_stem_byte)) return {};
  return "the name '" + escape_name(stem) + "' holds more than letters, digits, '_' and '-'";
}

bool Storage::open(const std::string& path, std::string& error) {
  path_ = path;
  if (directory_.open(path, false)) return true;
  error = fault();
  return false;
}

bool Storage::open_for_job(const std::string& path, bool make, const std::string& stem,
                           std::string& error) {
  path_ = path;
  if (!directory_.open(path, make) || !directory_.is_writable()) {
    const bool nothing_above = make && errno == ENOENT;
    error = fault();
    if (nothing_above) error += "; the directory above it isn't there either";
    return false;
  }
  if (!directory_.lock('.' + stem + ".lock", lock_)) {
    error = errno == EWOULDBLOCK ? "a job of '" + stem + "' is running" : fault();
    return false;
  }
  return remove_unfinished(stem, error);
}

bool Storage::newest_seq(const std::string& stem, unsigned int& seq, std::string& error) const {
  std::vector<std::string> names;
  seq = 0;
  if (!directory_.names(names)) {
    error = fault();
    return false;
  }
  for (const std::string& name : names) {
    MTF::Piece_Name piece;
    if (MTF::parse_piece_name(name, piece) && piece.stem == stem) seq = std::max(seq, piece.seq);
  }
  return true;
}

bool Storage::remove_job(const std::string& stem, unsigned int seq, std::string& error) const {
  std::vector<std::string> names;
  if (!names_of(stem, seq, names, error)) return false;
  if (names.empty()) {
    error = "there is no job " + std::to_string(seq) + " of '" + stem + "'";
    return false;
  }
  std::stable_partition(names.begin(), names.end(), is_catalog);
  for (const std::string& name : names) {
    if (!directory_.remove(name)) {
      error = error_text(name, errno);
      return false;
    }
  }
  if (directory_.sync()) return true;
  error = fault();
  return false;
}

unsigned long long Storage::job_size(const std::string& stem, unsigned int seq) const {
  std::vector<std::string> names;
  std::string error;
  unsigned long long bytes = 0;
  names_of(stem, seq, names, error);
  for (const std::string& name : names) {
    platform::Piece_File file;
    const long long size = directory_.open_read(name, file) ? file.size() : 0;
    if (size > 0) bytes += static_cast<unsigned long long>(size);
  }
  return bytes;
}

bool Storage::names_of(const std::string& stem, unsigned int seq, std::vector<std::string>& names,
                       std::string& error) const {
  if (!directory_.names(names)) {
    error = fault();
    return false;
  }
  const auto belongs_elsewhere = [&](const std::string& name) {
    MTF::Piece_Name piece;
    return !MTF::parse_piece_name(name, piece) || piece.stem != stem || piece.seq != seq;
  };
  names.erase(std::remove_if(names.begin(), names.end(), belongs_elsewhere), names.end());
  return true;
}

bool Storage::remove_unfinished(const std::string& stem, std::string& error) {
  std::vector<std::string> names;
  if (!directory_.names(names)) {
    error = fault();
    return false;
  }
  for (const std::string& name : names) {
    if (!is_unfinished(name, stem)) continue;
    if (!directory_.remove(name)) {
      error = error_text(name, errno);
      return false;
    }
    cleared_.push_back(name);
  }
  return true;
}

std::string Storage::fault() const {
  return error_text("storage '" + escape_name(path_) + "'", errno);
}

}  // namespace agent
