#include "mtf/reader/corrupt_files.h"

#include <memory>

#include "mtf/reader/media_catalog_place.h"
#include "mtf/reader/media_tree.h"
#include "services/piece_name.h"

namespace MTF {

unsigned long long corrupt_count(IPiece_Store& store, const Job_Pieces& job) {
  unsigned long long sum = 0;
  for (const unsigned long long channel : job.channels) {
    std::string piece, error;
    mtf_name(job.stem, job.seq, channel, piece);
    const std::unique_ptr<IRandom_Reader> reader = store.open(piece, error);
    if (reader == nullptr) continue;
    Piece_Window window(*reader, Piece_Window::look_capacity);
    unsigned int count = 0;
    if (Media_Catalog_Finder(window).corrupt_files(count)) sum += count;
  }
  return sum;
}

void list_corrupt(IPiece_Store& store, const Job_Pieces& job,
                  const std::function<void(const std::string& path)>& on_path) {
  const Fault_Sink ignore;
  Media_Tree(store, job, ignore).walk_corrupt([&](const Tree_Entry& item) {
    on_path(item.entry.path);
  });
}

}  // namespace MTF
