#include "agent/piece_namer.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "agent/text.h"
#include "services/piece_name.h"

namespace agent {
namespace {

bool is_media(const std::string& name) {
  MTF::Piece_Name piece;
  return MTF::parse_piece_name(name, piece) && !piece.catalog;
}

}  // namespace

void Piece_Namer::add(const std::string& name) {
  const std::lock_guard<std::mutex> guard(mutex_);
  names_.push_back(name);
}

bool Piece_Namer::name_all(std::string& error) {
  const std::lock_guard<std::mutex> guard(mutex_);
  std::vector<std::string> names = std::exchange(names_, {});
  std::stable_partition(names.begin(), names.end(), is_media);
  for (const std::string& name : names) {
    if (directory_.rename(name + part_ending, name)) continue;
    error = error_text(name, errno);
    return false;
  }
  if (directory_.sync()) return true;
  error = error_text("the storage", errno);
  return false;
}

}  // namespace agent
