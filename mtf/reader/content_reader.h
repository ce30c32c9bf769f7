// The streams of one block, read for what they restore.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "mtf/reader/content_map.h"
#include "mtf/reader/media_file.h"
#include "mtf/reader/stream_check.h"

namespace MTF {

// Takes the content of a file. False ends the reading.
using Content_Sink =
    std::function<bool(unsigned long long offset, const char* data, std::size_t size)>;

// What was found beside the content.
struct Content {
  unsigned long long length = 0;    // of the file, holes included
  std::optional<Stat_Extent> stat;  // of its CTEX or NACL stream
  bool has_security = false;        // it has a NACL stream, and so all its rights are here
  std::string attributes;           // the data of its NTEA stream
  std::string target;    // of a link what it leads to, of a further name the path of the first one
  std::string left_out;  // kinds of streams that hold more content, not given
};

class Content_Reader {
 public:
  // Keeps the references.
  Content_Reader(Media_File& media, const Content_Sink& sink);

  // Reads the streams of `block`. False, with `why` set, if the content isn't whole and right, or
  // if the sink ended it; `why` is empty then.
  bool read(const Media_Block& block, Content& content, std::string& why);

  // The same, but nothing is given to the sink: `map` says where the content stands. What is
  // compressed isn't expanded. `go_on` is asked again and again; where it says false, the reading
  // ends and `why` is empty.
  bool map(const Media_Block& block, Content& content, Content_Map& map,
           const std::function<bool()>& go_on, std::string& why);

  // Reads what is said beside the content, as long as something can still follow. Content is passed
  // by, without its checksum.
  bool describe(const Media_Block& block, Content& content, std::string& why);

 private:
  struct Progress;

  bool read_streams(Progress& progress, const Media_Block& block, std::string& why);
  bool read_stream(Progress& progress, unsigned long long& position, bool& last);
  bool pass_by(const Stream_Header& header, unsigned long long data_position,
               unsigned long long& position);
  bool take_stream(Progress& progress, const Stream_Header& header, unsigned long long position,
                   Stream_Data& data);
  bool take_sum(Progress& progress, const Stream_Header& header, unsigned long long position);
  bool give(Progress& progress, const char* data, std::size_t size);
  bool advance(Progress& progress, unsigned long long size);
  bool take_description(Progress& progress, const Stream_Header& header,
                        unsigned long long position);
  bool take_chunk(Progress& progress, const Stream_Header& header, unsigned long long position);
  void fault(unsigned long long position, const std::string& text);

  Piece_Window& window_;
  const Content_Sink& sink_;
  Fault_At on_fault_;
  Stream_Data_Reader data_reader_;
  std::string first_fault_;
};

// Reads the streams of a block for what they say beside content, as Content_Reader::read().
bool read_description(Media_File& media, const Media_Block& block, Content& content,
                      std::string& why);

}  // namespace MTF
