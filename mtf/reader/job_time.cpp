#include "mtf/reader/job_time.h"

#include <memory>
#include <string>

#include "mtf/reader/block_loader.h"
#include "services/piece_name.h"

namespace MTF {

bool job_time(IPiece_Store& store, const Job_Pieces& job, long long& time) {
  for (const unsigned long long channel : job.channels) {
    std::string piece, error, bytes;
    mtf_name(job.stem, job.seq, channel, piece);
    const std::unique_ptr<IRandom_Reader> reader = store.open(piece, error);
    if (reader == nullptr) continue;
    Piece_Window window(*reader, block_header_size);
    Media_Block tape;
    if (!load_block(window, 0, bytes, tape) || tape.view.header.type != block_tape) continue;
    time = mtf_date_time_to_time(
        reinterpret_cast<const unsigned char*>(tape.view.date(tape_at::media_date).data()));
    if (time != 0) return true;
  }
  return false;
}

}  // namespace MTF
