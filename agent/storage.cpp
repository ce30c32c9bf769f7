#include "agent/storage.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "agent/directory_storage.h"
#include "agent/paths.h"
#include "agent/rclone_storage.h"
#include "agent/text.h"
#include "services/piece_name.h"

namespace agent {
namespace {

constexpr const char* rclone_start = "rclone:";

// The directory for files without a name: the one for working files may not be there yet.
std::string usual_tmp() {
  const char* const given = std::getenv("TMPDIR");
  return given != nullptr && *given != '\0' ? given : "/var/tmp";
}

bool is_media(const std::string& name) {
  MTF::Piece_Name piece;
  return MTF::parse_piece_name(name, piece) && !piece.catalog;
}

}  // namespace

bool IStorage::pieces(std::vector<std::string>& names, std::string& error) {
  names.clear();
  std::vector<Stored_Piece> all;
  if (!list(all, error)) return false;
  for (Stored_Piece& piece : all) names.push_back(std::move(piece.name));
  return true;
}

std::unique_ptr<IStorage> make_storage(const std::string& text, std::string& error,
                                       const std::string& tmp) {
  if (text.compare(0, std::strlen(rclone_start), rclone_start) == 0) {
    const std::string place = text.substr(std::strlen(rclone_start));
    if (!check_place(place, error)) return nullptr;
    return std::make_unique<Rclone_Storage>(place, tmp.empty() ? usual_tmp() : tmp);
  }
  std::string path;
  if (absolute_path(text, path)) return std::make_unique<Directory_Storage>(path);
  error = "--storage '" + escape_controls(text) + "' is no path";
  return nullptr;
}

bool find_sizes(IStorage& storage, Job_Sizes& sizes, std::string& error) {
  std::vector<Stored_Piece> pieces;
  if (!storage.list(pieces, error)) return false;
  for (const Stored_Piece& each : pieces) {
    MTF::Piece_Name piece;
    if (MTF::parse_piece_name(each.name, piece)) sizes[{piece.stem, piece.seq}] += each.size;
  }
  return true;
}

bool newest_seq(IStorage& storage, const std::string& stem, unsigned int& seq, std::string& error) {
  std::vector<std::string> names;
  seq = 0;
  if (!storage.pieces(names, error)) return false;
  for (const std::string& name : names) {
    MTF::Piece_Name piece;
    if (MTF::parse_piece_name(name, piece) && piece.stem == stem) seq = std::max(seq, piece.seq);
  }
  return true;
}

bool remove_job(IStorage& storage, const std::string& stem, unsigned int seq, std::string& error) {
  std::vector<std::string> names;
  if (!storage.pieces(names, error)) return false;
  const auto belongs_elsewhere = [&](const std::string& name) {
    MTF::Piece_Name piece;
    return !MTF::parse_piece_name(name, piece) || piece.stem != stem || piece.seq != seq;
  };
  names.erase(std::remove_if(names.begin(), names.end(), belongs_elsewhere), names.end());
  if (names.empty()) {
    error = "there is no job " + std::to_string(seq) + " of '" + stem + "'";
    return false;
  }
  sort_catalogs_last(names);
  std::reverse(names.begin(), names.end());
  return storage.remove(names, error);
}

void sort_catalogs_last(std::vector<std::string>& names) {
  std::stable_partition(names.begin(), names.end(), is_media);
}

}  // namespace agent
