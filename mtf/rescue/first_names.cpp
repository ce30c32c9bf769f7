#include "mtf/rescue/first_names.h"

#include "mtf/reader/media_tree.h"
#include "services/text.h"

namespace MTF {
void First_Names::find(IPiece_Store& store, const Job_Pieces& job, unsigned long long channel) {
  Job_Pieces own = job;
  own.channels = {channel};
  Link_Targets targets(store, own);
  const Fault_Sink told_by_the_walk;
  Media_Tree(store, own, told_by_the_walk).list([&](const Tree_Entry& item) {
    std::string first, why;
    if (item.entry.type == block_hlnk && targets.find(item.entry, first, why)) {
      numbers_.try_emplace(hash_of(first));
    }
  });
}

bool First_Names::has(const std::string& path) const {
  return numbers_.count(hash_of(path)) != 0;
}

void First_Names::note(const std::string& path, unsigned long long number) {
  const auto found = numbers_.find(hash_of(path));
  if (found != numbers_.end()) found->second = number;
}

std::optional<unsigned long long> First_Names::number_of(const std::string& path) const {
  const auto found = numbers_.find(hash_of(path));
  return found == numbers_.end() ? std::nullopt : found->second;
}

}  // namespace MTF
