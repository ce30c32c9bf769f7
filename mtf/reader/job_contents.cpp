#include <memory>

#include "mtf/reader/catalog_walker.h"
#include "mtf/reader/job_metadata.h"
#include "mtf/reader/jobs.h"
#include "services/piece_name.h"
#include "services/text.h"

namespace MTF {
namespace {

// A link and a further name of a file have no content of their own.
unsigned long long content_bytes(const Catalog_Record& record) {
  return record.type == block_slnk || record.type == block_hlnk ? 0 : record.size;
}

void take(const Catalog_Record& record, unsigned int seq, Job_Contents& out) {
  unsigned long long& held = out.held_by[record.seq];
  if (!is_file_like(record.type)) return;
  const unsigned long long bytes = content_bytes(record);
  held += bytes;
  ++out.files;
  out.bytes += bytes;
  if (record.seq != seq) return;
  ++out.saved_files;
  out.saved_bytes += bytes;
}

unsigned int find_base(IPiece_Store& store, const Job_Pieces& job) {
  Metadata_Record record;
  for (const unsigned long long channel : job.channels) {
    std::string catalog;
    cat_name(job.stem, job.seq, channel, catalog);
    if (stored_metadata(store, catalog, record)) return stored_base(record, job.seq);
  }
  std::string text;
  const bool found = !job.channels.empty() &&
                     find_metadata(store, job, job.channels.front(), text) &&
                     read_metadata(text, record);
  return found ? stored_base(record, job.seq) : 0;
}

}  // namespace

bool read_contents(IPiece_Store& store, const Job_Pieces& job, Job_Contents& out,
                   const Fault_Sink& on_fault) {
  out = {};
  out.base = find_base(store, job);
  bool sound = true;
  for (const unsigned long long channel : job.channels) {
    std::string piece, error;
    cat_name(job.stem, job.seq, channel, piece);
    const Fault_At on_fault_at = [&](unsigned long long position, const std::string& text) {
      sound = false;
      if (on_fault) on_fault({piece, position, text});
    };
    const std::unique_ptr<IRandom_Reader> reader = store.open(piece, error);
    if (reader == nullptr) {
      on_fault_at(0, "can't be opened: " + error);
      continue;
    }
    Piece_Window window(*reader);
    Catalog_Walker walker(window, job.seq, on_fault_at);
    walker.open();
    Catalog_Record record;
    while (walker.next(record)) take(record, job.seq, out);
  }
  out.incremental = out.base != 0 ||
                    (!out.held_by.empty() && out.held_by.begin()->first < job.seq) ||
                    (!sound && !media_says_full(store, job));
  return sound;
}

}  // namespace MTF
