#include "mtf/reader/catalog_seqs.h"

#include <memory>

#include "mtf/reader/catalog_walker.h"
#include "services/piece_name.h"

namespace MTF {

bool walk_seqs(IPiece_Store& store, const Job_Pieces& job, unsigned long long channel,
               const std::function<bool(unsigned int seq)>& on_seq) {
  std::string catalog, error;
  cat_name(job.stem, job.seq, channel, catalog);
  const std::unique_ptr<IRandom_Reader> reader = store.open(catalog, error);
  if (reader == nullptr) return false;
  bool sound = true;
  const Fault_At on_fault = [&](unsigned long long, const std::string&) { sound = false; };
  Piece_Window window(*reader);
  Catalog_Walker walker(window, job.seq, on_fault);
  walker.open();
  Catalog_Record record;
  while (walker.next(record) && on_seq(record.seq)) {
  }
  return sound;
}

}  // namespace MTF
