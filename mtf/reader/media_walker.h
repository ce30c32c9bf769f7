// The walk over a media, block by block and stream by stream.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "mtf/reader/block_view.h"
#include "mtf/reader/piece_window.h"
#include "mtf/reader/stream_data.h"

namespace MTF {

// The two grids of a media.
struct Media_Geometry {
  unsigned int logical = 512;    // bytes of a format logical block
  unsigned int physical = 4096;  // bytes of a physical block; a multiple of `logical`
};

// Takes the geometry from a TAPE block. False, with the geometry as it was, if the block names no
// powers of two of which the second is a multiple of the first.
bool read_geometry(const Block_View& tape, Media_Geometry& geometry);

struct Media_Block {
  unsigned long long position;
  Block_View view;
};

struct Media_Stream {
  unsigned long long position;
  Stream_Header header;
  unsigned long long data_position;
  unsigned long long end;  // behind the stored data
  // The data of a small stream (names, stat records); of a sparse range its first 8 bytes. Empty
  // for every other stream and where the data is damaged.
  std::string_view content;
};

// Is told what stands on a media, in order. Views are valid until the call returns.
class IMedia_Visitor {
 public:
  virtual ~IMedia_Visitor() = default;

  virtual void on_block(const Media_Block& block) = 0;

  // A stream of the last block, SPAD and CSUM streams included.
  virtual void on_stream(const Media_Stream& stream) = 0;

  // The walk lost its way and goes on with the next block that it finds. The fault has been told.
  virtual void on_gap() = 0;
};

// How much of a media a walk reads.
enum class Walk_Depth {
  data,     // every byte
  headers,  // blocks, headers and small streams; content is passed over by its length
};

// Walks a media from its first byte to its last. It checks what can be seen in place: headers,
// checksums, alignment, fill bytes, lengths, frames. After damage it goes on with the next sound
// block that stands where it says.
class Media_Walker {
 public:
  // Keeps all references.
  Media_Walker(Piece_Window& window, IMedia_Visitor& visitor, const Fault_At& on_fault,
               Walk_Depth depth = Walk_Depth::data);

  void walk();

  const Media_Geometry& geometry() const { return geometry_; }

 private:
  bool walk_block(unsigned long long& position);
  bool load_block(unsigned long long position, Media_Block& block);
  void check_place(const Media_Block& block);
  void check_strings(const Media_Block& block);
  unsigned long long find_block(unsigned long long position);

  bool walk_streams(unsigned long long& position);
  bool walk_stream(unsigned long long& position, bool& last);
  bool load_stream_header(unsigned long long position, Stream_Header& header);
  bool read_stream(Media_Stream& stream, Stream_Data& data);
  void check_checksum(const Media_Stream& stream, const Stream_Data& data);
  bool check_pad(const Media_Stream& stream);
  bool ends_streams(const Media_Stream& pad);
  void check_fill(unsigned long long from, unsigned long long to);
  void tell_missing_checksum();

  Piece_Window& window_;
  IMedia_Visitor& visitor_;
  const Fault_At& on_fault_;
  Stream_Data_Reader data_reader_;
  const Walk_Depth depth_;
  Media_Geometry geometry_;
  std::string block_bytes_;
  std::string content_;
  // Of the ESET block before this one, if nothing but its streams stands in between.
  std::optional<unsigned long long> eset_address_;
  // The stream that the next CSUM stream belongs to.
  struct Summed {
    unsigned long long position;
    unsigned int checksum;
    bool intact;
  };
  std::optional<Summed> summed_;
};

// True if a sound block of a known type stands at `position` and says so.
bool block_stands_at(Piece_Window& window, const Media_Geometry& geometry,
                     unsigned long long position);

}  // namespace MTF
