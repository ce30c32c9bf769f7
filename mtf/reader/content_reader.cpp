#include "mtf/reader/content_reader.h"

#include <algorithm>
#include <utility>

#include "mtf/reader/link_view.h"
#include "mtf/reader/security_view.h"

namespace MTF {
namespace {

constexpr std::size_t most_small_data = 0x40000;
// Far more than a file system gives a file. Its bytes stand on the media, so a length that is only
// claimed takes no memory.
constexpr std::size_t most_attribute_data = 0x40000000;

// Streams that tell about the file, each small enough to be held. One that leads elsewhere tells
// something only behind the block of a link or of a further name.
bool is_description(unsigned int id, unsigned int block_type) {
  if (id == stream_ntrp) return block_type == block_slnk;
  if (id == stream_link) return block_type == block_hlnk;
  return id == stream_ctex || id == stream_nacl || id == stream_ntea;
}

bool has_content(const Block_Header& header) {
  // The size of a directory says nothing of its streams.
  return header.displayable_size != 0 && (header.type == block_file || header.type == block_pdat);
}

// The streams that a block of this type must have to be restored.
const char* missing_of(unsigned int block_type, const Content& content) {
  const bool leads = block_type == block_slnk || block_type == block_hlnk;
  if (leads && content.target.empty()) return "block doesn't say what it leads to";
  if (block_type == block_devb && !content.stat) return "block doesn't say what device it is of";
  return nullptr;
}

// Streams with content that is lost if nothing restores them.
bool holds_content(unsigned int id) {
  switch (id) {
    case stream_fnam:
    case stream_pnam:
    case stream_nacl:
    case stream_ntea:
    case stream_ntoi:
    case stream_ntpr:
    case stream_stat:
    case stream_spad:
      return false;
    default:
      return true;
  }
}

}  // namespace

// How far the reading of one block has come.
struct Content_Reader::Progress {
  Progress(Content& found, unsigned int type) : content(found), block_type(type) {}

  Content& content;
  const unsigned int block_type;
  unsigned long long offset = 0;  // in the file, of the next data
  bool main_stream = false;       // SPAR streams belong to the file's own content
  bool content_seen = false;
  bool chunk_open = false;          // the last chunk of a stream of unknown length is still to come
  std::optional<unsigned int> sum;  // what the next CSUM stream must hold
  bool stopped = false;             // by the sink
  bool describing = false;          // content is passed by
  bool passed = false;              // the next CSUM stream belongs to what was passed by
  Content_Map* map = nullptr;       // notes where content stands, in place of giving it
  std::string small;                // the data of a small stream, or the offset of a sparse range
};

Content_Reader::Content_Reader(Media_File& media, const Content_Sink& sink)
    : window_(media.window()),
      sink_(sink),
      on_fault_(
          [this](unsigned long long position, const std::string& text) { fault(position, text); }),
      data_reader_(window_, on_fault_) {}

void Content_Reader::fault(unsigned long long position, const std::string& text) {
  if (first_fault_.empty()) first_fault_ = "at " + std::to_string(position) + ": " + text;
}

bool Content_Reader::read(const Media_Block& block, Content& content, std::string& why) {
  content = {};
  Progress progress(content, block.view.header.type);
  return read_streams(progress, block, why);
}

bool Content_Reader::map(const Media_Block& block, Content& content, Content_Map& map,
                         const std::function<bool()>& go_on, std::string& why) {
  content = {};
  Progress progress(content, block.view.header.type);
  progress.map = &map;
  const Stream_Watch watch{[&](unsigned long long position, unsigned long long offset) {
                             map.add_frame(position, offset);
                           },
                           go_on};
  data_reader_.set_watch(&watch);
  const bool read = read_streams(progress, block, why);
  data_reader_.set_watch(nullptr);
  const bool whole = read && map.finish();
  if (read && !whole) why = "its content is in too many ranges, or in ranges that overlap";
  return whole;
}

bool Content_Reader::describe(const Media_Block& block, Content& content, std::string& why) {
  content = {};
  Progress progress(content, block.view.header.type);
  progress.describing = true;
  return read_streams(progress, block, why);
}

bool Content_Reader::read_streams(Progress& progress, const Media_Block& block, std::string& why) {
  first_fault_.clear();
  unsigned long long position = block.position + block.view.bytes.size();
  bool going = true;
  for (bool last = false; going && !last;) going = read_stream(progress, position, last);
  if (going && progress.sum) fault(position, "stream has no CSUM stream");
  if (going && progress.chunk_open) fault(position, "the last chunk of a stream is missing");
  if (going && !progress.describing && has_content(block.view.header) && !progress.content_seen) {
    fault(block.position, "block has no content");
  }
  const char* missing = missing_of(block.view.header.type, progress.content);
  if (going && missing != nullptr) fault(block.position, missing);
  why = first_fault_;
  return going && first_fault_.empty() && !progress.stopped;
}

bool Content_Reader::read_stream(Progress& progress, unsigned long long& position, bool& last) {
  position = (position + stream_alignment - 1) / stream_alignment * stream_alignment;
  const char* bytes = window_.view(position, stream_header_size);
  if (bytes == nullptr) return fault(position, "streams end too early"), false;
  const Stream_Header header = read_stream_header(bytes);
  if (!header.intact) return fault(position, "stream header is damaged"), false;
  last = header.id == stream_spad;
  if (last) return true;
  const unsigned long long data_position = position + stream_header_size;
  if (header.id == stream_csum) {
    position = data_position + checksum_size;
    if (std::exchange(progress.passed, false)) return true;
    return take_sum(progress, header, data_position);
  }
  if (progress.sum) return fault(position, "stream in front has no CSUM stream"), false;
  if (progress.describing && !is_description(header.id, progress.block_type)) {
    // Rights that stand in a NACL stream stand in front of all content, and attributes too.
    last = progress.content.has_security && holds_content(header.id);
    progress.passed = header.is(mf_checksummed) || header.is(mf_variable_end);
    return last || pass_by(header, data_position, position);
  }
  Stream_Data data;
  if (!take_stream(progress, header, data_position, data)) return false;
  if (header.is(mf_checksummed)) progress.sum = data.checksum;
  position = data.end;
  return data.intact && !progress.stopped;
}

bool Content_Reader::pass_by(const Stream_Header& header, unsigned long long data_position,
                             unsigned long long& position) {
  Stream_Data data;
  if (!data_reader_.skip(header, data_position, data)) return false;
  position = data.end;
  return true;
}

bool Content_Reader::take_stream(Progress& progress, const Stream_Header& header,
                                 unsigned long long position, Stream_Data& data) {
  progress.small.clear();
  const auto content = [&](const char* bytes, std::size_t size) {
    return give(progress, bytes, size);
  };
  const std::size_t most = header.id == stream_ntea ? most_attribute_data : most_small_data;
  const auto keep = [&](const char* bytes, std::size_t size) {
    progress.small.append(bytes, std::min(size, most - progress.small.size()));
    return progress.small.size() < most;
  };
  // A sparse range starts with its offset in the file.
  const auto range = [&](const char* bytes, std::size_t size) {
    const std::size_t missing = sparse_offset_size - progress.small.size();
    const std::size_t taken = std::min(missing, size);
    progress.small.append(bytes, taken);
    if (progress.small.size() < sparse_offset_size) return true;
    if (taken != 0) progress.offset = load_le<unsigned long long>(progress.small.data());
    if (progress.map != nullptr) return false;
    return give(progress, bytes + taken, size - taken);
  };
  const bool main = header.id == stream_stan;
  const bool sparse = header.id == stream_spar && progress.main_stream;
  const bool description = is_description(header.id, progress.block_type);
  if (main || header.id == stream_adat) progress.main_stream = main;
  if (main && !take_chunk(progress, header, position)) return false;
  if (sparse && header.length < sparse_offset_size) {
    return fault(position, "SPAR stream is shorter than its offset"), false;
  }
  const bool mapped = progress.map != nullptr && (main || sparse);
  const std::size_t prefix = sparse ? sparse_offset_size : 0;
  if (mapped) progress.map->open_range(header, position, prefix);
  const Data_Sink sink = main          ? mapped ? Data_Sink() : Data_Sink(content)
                                  : sparse ? Data_Sink(range)
                         : description ? Data_Sink(keep)
                                       : Data_Sink();
  if (!data_reader_.read(header, position, sink, data)) return false;
  if (mapped && data.intact) {
    progress.map->close_range(progress.offset);
    if (!advance(progress, header.length - prefix)) return false;
  }
  if (description) return take_description(progress, header, position);
  if (!main && !sparse && holds_content(header.id)) {
    progress.content.left_out += (progress.content.left_out.empty() ? "" : ", ");
    progress.content.left_out += stream_word(header.id);
  }
  return true;
}

bool Content_Reader::take_chunk(Progress& progress, const Stream_Header& header,
                                unsigned long long position) {
  const bool part = header.is(mf_variable);
  if (progress.content_seen && !progress.chunk_open) {
    return fault(position, "second STAN stream of a block"), false;
  }
  progress.chunk_open = part;
  progress.content_seen = true;
  return true;
}

bool Content_Reader::take_description(Progress& progress, const Stream_Header& header,
                                      unsigned long long position) {
  Content& content = progress.content;
  Stat_Extent record;
  std::vector<Extended_Attribute> attributes;
  bool known = true;
  const bool leads = header.id == stream_ntrp || header.id == stream_link;
  const bool right = header.id == stream_ntrp   ? read_symbolic_link(progress.small, content.target)
                     : header.id == stream_link ? read_first_name(progress.small, content.target)
                     : header.id == stream_ctex ? read_stat_extent(progress.small, record)
                     : header.id == stream_nacl ? read_security(progress.small, record, known)
                                                : read_attributes(progress.small, attributes);
  if (!right) return fault(position, stream_word(header.id) + " stream has a wrong layout"), false;
  if (header.id == stream_ntea) {
    content.attributes = std::move(progress.small);
  } else if (known && !leads) {
    content.stat = record;
  }
  content.has_security = content.has_security || header.id == stream_nacl;
  return true;
}

bool Content_Reader::take_sum(Progress& progress, const Stream_Header& header,
                              unsigned long long position) {
  const char* bytes = window_.view(position, checksum_size);
  if (bytes == nullptr || header.length != checksum_size) {
    return fault(position, "CSUM stream is damaged"), false;
  }
  // The empty last chunk of a stream of unknown length has a checksum that it doesn't announce.
  const unsigned int expected = progress.sum.value_or(0);
  progress.sum.reset();
  if (load_le<unsigned int>(bytes) == expected) return true;
  return fault(position, "checksum of the stream's data is wrong"), false;
}

bool Content_Reader::give(Progress& progress, const char* data, std::size_t size) {
  const unsigned long long offset = progress.offset;
  if (!advance(progress, size)) return false;
  if (size == 0 || sink_(offset, data, size)) return true;
  progress.stopped = true;
  return false;
}

// Moves behind `size` bytes of the file.
bool Content_Reader::advance(Progress& progress, unsigned long long size) {
  constexpr unsigned long long largest = ~0ULL >> 1;
  if (progress.offset > largest || size > largest - progress.offset) {
    fault(0, "SPAR stream has a wrong offset");
    return false;
  }
  progress.offset += size;
  progress.content.length = std::max(progress.content.length, progress.offset);
  return true;
}

bool read_description(Media_File& media, const Media_Block& block, Content& content,
                      std::string& why) {
  const Content_Sink no_sink = [](unsigned long long, const char*, std::size_t) { return true; };
  return Content_Reader(media, no_sink).read(block, content, why);
}

}  // namespace MTF
