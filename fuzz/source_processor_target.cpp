// The reading of an earlier catalog, entry by entry.
#include <cstdlib>

#include "fuzz/local_file.h"
#include "mtf/catalog/source_processor.h"

namespace {

class Reader : public MTF::Source_Processor {
 public:
  Reader() : Source_Processor(false) {}

  // Bytes of all entries.
  unsigned long long read() {
    unsigned long long bytes = 0;
    while (next()) {
      const char* const end = entry().data() + entry().capacity();
      const bool inside = name().data() >= entry().data() && name().data() + name().size() <= end;
      if (name().empty() || !inside || entry().capacity() != entry().hdr().length()) std::abort();
      bytes += entry().capacity();
    }
    return bytes;
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr unsigned int around = 96 + 22 + 64;  // summary, header of the metadata, FEND
  for (const fuzz::Piece& piece : fuzz::split(data, size)) {
    fuzz::Local_File file(piece.bytes);
    Reader reader;
    if (!reader.open(file.path())) continue;
    const unsigned long long bytes = reader.read();
    // A catalog that is sound has been read to its last byte.
    const bool whole = around + reader.metadata().size() + bytes == piece.bytes.size();
    if (!reader.failed() && !whole) std::abort();
  }
  return 0;
}
