#include "agent/piece_namer.h"

#include <utility>

namespace agent {

void Piece_Namer::add(const std::string& name) {
  const std::lock_guard<std::mutex> guard(mutex_);
  names_.push_back(name);
}

bool Piece_Namer::name_all(std::string& error) {
  const std::lock_guard<std::mutex> guard(mutex_);
  std::vector<std::string> names = std::exchange(names_, {});
  sort_catalogs_last(names);
  return storage_.name_pieces(names, error);
}

}  // namespace agent
