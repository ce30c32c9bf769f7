#include "mtf/reader/media_walker.h"

#include <algorithm>

#include "mtf/common/round_up.h"
#include "services/bytes.h"

namespace MTF {
namespace {

constexpr std::size_t content_limit = 0xFFFF;
constexpr std::size_t fill_chunk = 0x10000;
// Behind the strings of a block the first 1024 bytes are clean.
constexpr std::size_t clean_bytes = 1024;

bool power_of_two(unsigned int n) {
  return n != 0 && (n & (n - 1)) == 0;
}

// The bytes of a stream's data that a visitor gets to see.
std::size_t content_wanted(const Stream_Header& header) {
  switch (header.id) {
    case stream_fnam:
    case stream_pnam:
    case stream_ctex:
    case stream_stat:
    case stream_csum:
    case stream_nacl:
    case stream_ntea:
    case stream_ntrp:
    case stream_link:
      return content_limit;
    case stream_spar:
      return sparse_offset_size;
    default:
      return 0;
  }
}

unsigned int address_unit(unsigned int type, const Media_Geometry& geometry) {
  return type == block_sfmb ? geometry.physical : geometry.logical;
}

bool address_is_right(const Block_Header& header, const Media_Geometry& geometry,
                      unsigned long long position) {
  const unsigned int unit = address_unit(header.type, geometry);
  return position % unit == 0 && header.format_logical_address == position / unit;
}

}  // namespace

bool read_geometry(const Block_View& tape, Media_Geometry& geometry) {
  const unsigned int logical = tape.get<unsigned short>(tape_at::format_logical_block_size);
  const unsigned int physical = tape.get<unsigned short>(tape_at::soft_filemark_block_size);
  if (!power_of_two(logical) || !power_of_two(physical) || physical < logical || logical < 64) {
    return false;
  }
  geometry.logical = logical;
  geometry.physical = physical;
  return true;
}

bool block_stands_at(Piece_Window& window, const Media_Geometry& geometry,
                     unsigned long long position) {
  const char* bytes = window.view(position, block_header_size);
  if (bytes == nullptr || block_layout(load_le<unsigned int>(bytes)) == nullptr) return false;
  const Block_Header header = read_block_header(bytes);
  return header.intact && address_is_right(header, geometry, position);
}

Media_Walker::Media_Walker(Piece_Window& window, IMedia_Visitor& visitor, const Fault_At& on_fault,
                           Walk_Depth depth)
    : window_(window),
      visitor_(visitor),
      on_fault_(on_fault),
      data_reader_(window, on_fault),
      depth_(depth) {}

void Media_Walker::walk() {
  unsigned long long position = 0;
  while (position < window_.size()) {
    if (walk_block(position)) continue;
    summed_.reset();
    visitor_.on_gap();
    position = find_block(position);
  }
  tell_missing_checksum();
}

// Moves `position` to where the next block must stand. False if that can't be told; `position` then
// is the place of the damage.
bool Media_Walker::walk_block(unsigned long long& position) {
  Media_Block block;
  if (!load_block(position, block)) return false;
  if (block.view.header.type == block_tape && !read_geometry(block.view, geometry_)) {
    on_fault_(position, "TAPE block has wrong block sizes");
  }
  check_place(block);
  check_strings(block);
  // A stream that was filled up has no checksum; the CFIL block that comes next says why.
  if (block.view.header.type == block_cfil) summed_.reset();
  tell_missing_checksum();
  visitor_.on_block(block);
  position += block.view.bytes.size();
  if (block.view.header.type == block_sfmb) return true;
  return walk_streams(position);
}

bool Media_Walker::load_block(unsigned long long position, Media_Block& block) {
  const char* bytes = window_.view(position, block_header_size);
  if (bytes == nullptr) {
    on_fault_(position, "no room for a block, or it can't be read");
    return false;
  }
  const Block_Header header = read_block_header(bytes);
  const Block_Layout* layout = block_layout(header.type);
  const auto fault = [&](const std::string& text) { on_fault_(position, text); };
  if (!header.intact) return fault("header of a block is damaged"), false;
  if (layout == nullptr) return fault("block of unknown type"), false;
  const std::string word = block_word(header.type);
  if (header.offset_to_first_event < layout->fixed_size ||
      header.offset_to_first_event % stream_alignment != 0) {
    return fault(word + " block has a wrong offset to its first event"), false;
  }
  bytes = window_.view(position, header.offset_to_first_event);
  if (bytes == nullptr) return fault(word + " block runs past the end, or can't be read"), false;
  if (header.os_id != expected_os_id) fault(word + " block has another OS id");
  block_bytes_.assign(bytes, header.offset_to_first_event);
  block = {position, {header, layout, block_bytes_}};
  return true;
}

void Media_Walker::check_place(const Media_Block& block) {
  const Block_View& view = block.view;
  if (view.layout->on_physical_grid && block.position % geometry_.physical != 0) {
    on_fault_(block.position, block_word(view.header.type) + " block is off the physical grid");
  }
  // The copy of an ESET block behind the catalog keeps the address of the first one.
  const bool copy = view.header.type == block_eset && eset_address_;
  const bool right = copy ? view.header.format_logical_address == *eset_address_
                          : address_is_right(view.header, geometry_, block.position);
  if (!right) {
    on_fault_(block.position,
              block_word(view.header.type) + " block says that it stands somewhere else");
  }
  eset_address_.reset();
  if (view.header.type == block_eset && !copy) eset_address_ = view.header.format_logical_address;
}

void Media_Walker::check_strings(const Media_Block& block) {
  const Block_View& view = block.view;
  if (view.header.type == block_sfmb) return;  // an array follows, no strings
  std::size_t used = view.layout->fixed_size;
  for (const unsigned char address : view.layout->addresses) {
    if (address == 0) continue;
    std::string_view text;
    if (!view.string(address, text)) {
      on_fault_(block.position + address,
                block_word(view.header.type) + " block has a string outside itself");
      return;
    }
    if (text.empty()) continue;
    used = std::max<std::size_t>(used, text.data() + text.size() - view.bytes.data());
  }
  const std::size_t clean = std::min(view.bytes.size(), clean_bytes);
  if (used >= clean) return;
  const std::string_view rest = view.bytes.substr(used, clean - used);
  const std::size_t bad = rest.find_first_not_of('\0');
  if (bad != std::string_view::npos) {
    on_fault_(block.position + used + bad,
              block_word(view.header.type) + " block has bytes behind its strings");
  }
}

// The place of the next sound block behind `position`, or the end of the media. A stretch that the
// storage can't read is passed in steps that grow, so that a large one doesn't take for ever.
unsigned long long Media_Walker::find_block(unsigned long long position) {
  unsigned long long step = geometry_.logical;
  for (position = position / step * step + step; position < window_.size(); position += step) {
    if (block_stands_at(window_, geometry_, position)) return position;
    const bool readable = window_.view(position, 1) != nullptr;
    step = readable ? geometry_.logical
                    : std::min<unsigned long long>(2 * step, Piece_Window::walk_capacity);
  }
  return window_.size();
}

bool Media_Walker::walk_streams(unsigned long long& position) {
  for (bool last = false; !last;) {
    if (!walk_stream(position, last)) return false;
  }
  return true;
}

// Moves `position` behind one stream and sets `last` if the block's streams end with it.
bool Media_Walker::walk_stream(unsigned long long& position, bool& last) {
  const unsigned long long start = round_up<unsigned long long>(position, stream_alignment);
  check_fill(position, start);
  position = start;
  Media_Stream stream{start, {}, start + stream_header_size, 0, {}};
  if (!load_stream_header(start, stream.header)) return false;
  if (stream.header.id != stream_csum && stream.header.id != stream_spad) tell_missing_checksum();
  const bool pad = stream.header.id == stream_spad;
  if (pad && !check_pad(stream)) return false;
  Stream_Data data;
  if (!read_stream(stream, data)) {
    // The frames in front of the damage are sound. To look for blocks in them would take a time
    // that grows with the square of the media.
    position = data.end;
    return false;
  }
  if (pad) last = ends_streams(stream);
  check_checksum(stream, data);
  visitor_.on_stream(stream);
  position = stream.end;
  // The set map starts on a physical block of its own.
  if (stream.header.id == stream_tfdd) {
    position = round_up<unsigned long long>(position, geometry_.physical);
    check_fill(stream.end, position);
  }
  return true;
}

bool Media_Walker::load_stream_header(unsigned long long position, Stream_Header& header) {
  const char* bytes = window_.view(position, stream_header_size);
  if (bytes == nullptr) {
    on_fault_(position, "streams end without a SPAD stream, or can't be read");
    return false;
  }
  header = read_stream_header(bytes);
  if (!header.intact) {
    on_fault_(position, "stream header is damaged");
    return false;
  }
  if (!known_stream(header.id)) {
    on_fault_(position, "stream of unknown kind " + stream_word(header.id));
  }
  return true;
}

bool Media_Walker::read_stream(Media_Stream& stream, Stream_Data& data) {
  content_.clear();
  const std::size_t wanted = content_wanted(stream.header);
  const bool pad = stream.header.id == stream_spad;
  bool clean = true;
  const auto take = [&](const char* bytes, std::size_t size) {
    if (pad) {
      clean = clean && std::string_view(bytes, size).find_first_not_of('\0') == std::string::npos;
      return clean;
    }
    content_.append(bytes, std::min(size, wanted - content_.size()));
    return content_.size() < wanted;
  };
  const Data_Sink sink = pad || wanted != 0 ? Data_Sink(take) : Data_Sink();
  const bool passed = depth_ == Walk_Depth::headers && wanted == 0;
  if (passed ? !data_reader_.skip(stream.header, stream.data_position, data)
             : !data_reader_.read(stream.header, stream.data_position, sink, data)) {
    return false;
  }
  if (!clean) on_fault_(stream.data_position, "SPAD stream isn't zero");
  stream.end = data.end;
  if (data.intact) stream.content = content_;
  return true;
}

void Media_Walker::check_checksum(const Media_Stream& stream, const Stream_Data& data) {
  if (stream.header.id == stream_spad) return;
  if (stream.header.id != stream_csum) {
    // The empty last chunk of a stream of unknown length has a checksum all the same.
    if (stream.header.is(mf_checksummed) || stream.header.is(mf_variable_end)) {
      summed_ = Summed{stream.position, data.checksum, data.intact};
    }
    return;
  }
  if (!summed_) {
    on_fault_(stream.position, "CSUM stream without a stream in front of it");
  } else if (stream.header.length != checksum_size) {
    on_fault_(stream.position, "CSUM stream has a wrong length");
  } else if (summed_->intact && stream.content.size() == checksum_size &&
             load_le<unsigned int>(stream.content.data()) != summed_->checksum) {
    on_fault_(summed_->position, "checksum of the stream's data is wrong");
  }
  summed_.reset();
}

bool Media_Walker::check_pad(const Media_Stream& stream) {
  if (!stream.header.is(mf_compressed) &&
      (stream.data_position + stream.header.length) % geometry_.logical == 0) {
    return true;
  }
  on_fault_(stream.position, "SPAD stream doesn't end where a block can stand");
  return false;
}

// What follows a SPAD stream is the next block, or one more SPAD stream where an object was left
// out.
bool Media_Walker::ends_streams(const Media_Stream& pad) {
  const char* next = window_.view(pad.end, sizeof(unsigned int));
  return next == nullptr || load_le<unsigned int>(next) != stream_spad;
}

void Media_Walker::check_fill(unsigned long long from, unsigned long long to) {
  while (from < to) {
    const auto size = static_cast<std::size_t>(std::min<unsigned long long>(fill_chunk, to - from));
    const char* bytes = window_.view(from, size);
    if (bytes == nullptr) return;  // what should follow isn't there: reported with its header
    if (std::string_view(bytes, size).find_first_not_of('\0') != std::string_view::npos) {
      on_fault_(from, "fill bytes in front of a stream aren't zero");
      return;
    }
    from += size;
  }
}

void Media_Walker::tell_missing_checksum() {
  if (summed_) on_fault_(summed_->position, "stream has no CSUM stream");
  summed_.reset();
}

}  // namespace MTF
