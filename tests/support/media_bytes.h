// Medias and catalogs put together by hand, byte by byte, from the tables of the format. Nothing
// of the library takes part.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "mtf/reader/piece_store.h"

namespace test {

// Little-endian bytes.
struct Bytes {
  std::string data;

  Bytes& le(unsigned long long value, int width) {
    for (int i = 0; i < width; ++i) data += static_cast<char>(value >> (8 * i));
    return *this;
  }
  Bytes& raw(const std::string& text) {
    data += text;
    return *this;
  }
  Bytes& zeros(std::size_t n) {
    data.append(n, '\0');
    return *this;
  }
};

// XOR of the 16-bit words of `size` bytes, and of the 32-bit words of a text.
unsigned int xor16(const std::string& data, std::size_t at, std::size_t size);
unsigned int xor32(std::string data);
void set_le(std::string& data, std::size_t at, unsigned long long value, int width);
unsigned long long get_le(const std::string& data, std::size_t at, int width);

// The five bytes of a date.
std::string date(int year, int month, int day, int hour = 0, int minute = 0, int second = 0);

// The text with NUL in place of each backslash.
std::string nul_separated(std::string text);

// Computes the checksum of the block, stream header or catalog record that starts at `at` anew.
void seal_block(std::string& data, std::size_t at);
void seal_stream(std::string& data, std::size_t at);
void seal_record(std::string& data, std::size_t at);

struct Catalog_Entry {
  std::string type;
  unsigned int seq = 1;
  unsigned long long address = 0;
  unsigned long long size = 0;
  unsigned long long space = 0;
  unsigned long long sset_off = 0;
  unsigned long long sset_fla = 0;
  std::string date;
  std::string name;
};

// How the data of a stream is stored.
struct Frame {
  std::string data;    // expanded
  std::string stored;  // as it stands on the media
};

class Media_Bytes {
 public:
  explicit Media_Bytes(unsigned int seq = 1) : seq_(seq) {}

  // Everything up to the SSET block and its metadata, and everything from the last entry on.
  void begin(const std::string& metadata);
  void end();

  // Each puts a SPAD stream in front of its block and notes the entry for the catalog.
  void volb(const std::string& device);
  void dirb(const std::string& name, const std::string& modified);
  void file(const std::string& name, unsigned long long size, const std::string& modified);
  void pdat(const std::string& name);
  void cfil(unsigned int attributes, unsigned long long offset, unsigned int stream_number);
  // A block whose name stands in a PNAM or FNAM stream.
  void dirb_with_pnam(const std::string& name, const std::string& modified);
  void file_with_fnam(const std::string& name, unsigned long long size,
                      const std::string& modified);

  // Streams of the last block.
  void stream(const std::string& id, const std::string& data, unsigned int file_attributes = 0,
              unsigned int media_attributes = 0, bool checksum = true);
  void stan(const std::string& data) { stream("STAN", data, data.empty() ? 8 : 0); }
  void spar(unsigned long long offset, const std::string& data);
  void frames(const std::string& id, const std::vector<Frame>& list, unsigned int method,
              unsigned long long length);
  void ctex(unsigned int mode, unsigned int uid, unsigned int gid, const std::string& owner,
            const std::string& group);
  void pad(unsigned int grid);

  // Where the last block, the last stream's header and the last stream's data start.
  std::size_t block_at = 0;
  std::size_t stream_at = 0;
  std::size_t data_at = 0;

  // Where each block and each stream's data start, by type.
  std::vector<std::pair<std::string, std::size_t>> places;

  // With a TFDD and a TSMP stream and a second ESET block.
  bool with_catalog = false;
  std::string data;
  std::vector<Catalog_Entry> entries;
  std::string metadata_text;

  // The catalog that belongs to the media, with `entries` as they stand.
  std::string catalog() const { return catalog_of(entries, metadata_text, seq_); }
  static std::string catalog_of(const std::vector<Catalog_Entry>& entries,
                                const std::string& metadata, unsigned int seq);

 private:
  void align();
  void block(const std::string& type, const std::string& fields, const std::string& strings,
             unsigned int attributes, unsigned int control_block_id, unsigned long long size,
             std::size_t whole = 0);
  void filemark();
  void eset(unsigned long long fdd_pba, unsigned long long sm_pba);
  void media_catalog();
  void note(const std::string& type, const std::string& name, const std::string& modified,
            unsigned long long size);
  void named(const std::string& type, const std::string& name, const std::string& fields,
             unsigned int fixed, unsigned int attributes, unsigned long long size);

  unsigned int seq_;
  unsigned int control_block_id_ = 0;
  unsigned int directory_id_ = 0;
  unsigned int file_id_ = 0;
  unsigned int corrupt_ = 0;
  std::vector<unsigned int> filemarks_;
  unsigned long long sset_at_ = 0;
  unsigned long long eset_at_ = 0;
};

// Pieces in memory.
class Memory_Store : public MTF::IPiece_Store {
 public:
  bool pieces(std::vector<std::string>& names, std::string& error) override;
  std::unique_ptr<MTF::IRandom_Reader> open(const std::string& name, std::string& error) override;

  std::map<std::string, std::string> held;
  // Reads that touch these bytes of a media give `bad_result`.
  std::size_t bad_from = 0;
  std::size_t bad_to = 0;
  long long bad_result = -1;
};

}  // namespace test
