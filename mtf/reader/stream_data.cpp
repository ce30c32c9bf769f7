#include "mtf/reader/stream_data.h"

#include <algorithm>
#include <cstring>

#include "services/checksum.h"
#include "services/compression.h"

namespace MTF {
namespace {

constexpr std::size_t read_chunk_size = 0x40000;

}  // namespace

// How far the reading of a stream in frames has come.
struct Stream_Data_Reader::Frames {
  const Stream_Header& header;
  const Data_Sink& sink;
  Stream_Data& out;
  unsigned long long position;
  unsigned long long left;     // bytes of data still to come, expanded
  unsigned char sequence = 0;  // counts the frames, 8 bits wide
  bool giving = true;
  char header_bytes[frame_header_size] = {};  // of the last frame
};

bool Stream_Data_Reader::read(const Stream_Header& header, unsigned long long position,
                              const Data_Sink& sink, Stream_Data& out) {
  out = {};
  out.end = position;
  return header.is(mf_compressed) ? read_frames(header, position, sink, out)
                                  : read_plain(header, position, sink, out);
}

bool Stream_Data_Reader::skip(const Stream_Header& header, unsigned long long position,
                              Stream_Data& out) {
  out = {};
  out.end = position;
  out.intact = false;
  if (!header.is(mf_compressed)) {
    if (!window_.holds(position, header.length)) return runs_out(header, position);
    out.end += header.length;
    return true;
  }
  const Data_Sink no_sink;
  Frames state{header, no_sink, out, position, header.length};
  Frame_Header frame;
  while (state.left > 0) {
    if (!next_frame(state, frame)) return false;
    if (!window_.holds(state.position, frame.compressed_size)) {
      on_fault_(state.position, "data of a compression frame can't be read");
      return false;
    }
    state.position += frame.compressed_size;
    out.end = state.position;
  }
  return true;
}

bool Stream_Data_Reader::runs_out(const Stream_Header& header, unsigned long long position) {
  on_fault_(position, stream_word(header.id) + " stream runs past the end of the piece");
  return false;
}

bool Stream_Data_Reader::read_plain(const Stream_Header& header, unsigned long long position,
                                    const Data_Sink& sink, Stream_Data& out) {
  if (!window_.holds(position, header.length)) return runs_out(header, position);
  out.end = position + header.length;
  Checksum_Calculator checksum;
  bool giving = static_cast<bool>(sink);
  while (position < out.end) {
    if (!go_on()) return false;
    const auto size =
        static_cast<std::size_t>(std::min<unsigned long long>(read_chunk_size, out.end - position));
    const char* data = window_.view(position, size);
    if (data == nullptr) {
      on_fault_(position, "can't be read");
      out.intact = false;
      return true;
    }
    checksum.calc(data, size, false);
    if (giving) giving = sink(data, size);
    position += size;
  }
  checksum.calc(nullptr, 0, true);
  out.checksum = checksum.checksum();
  return true;
}

bool Stream_Data_Reader::read_frames(const Stream_Header& header, unsigned long long position,
                                     const Data_Sink& sink, Stream_Data& out) {
  Frames state{header, sink, out, position, header.length};
  state.giving = static_cast<bool>(sink);
  Checksum_Calculator checksum;
  Frame_Header frame;
  while (state.left > 0) {
    if (!go_on()) return false;
    const unsigned long long at = state.position, offset = header.length - state.left;
    if (!next_frame(state, frame)) return false;
    if (watch_ != nullptr) watch_->on_frame(at, offset);
    checksum.calc(state.header_bytes, frame_header_size, false);
    const char* stored = window_.view(state.position, frame.compressed_size);
    if (stored == nullptr) {
      on_fault_(state.position, "data of a compression frame can't be read");
      return false;
    }
    checksum.calc(stored, frame.compressed_size, false);
    if (!give_frame(frame, stored, state)) out.intact = false;
    state.position += frame.compressed_size;
    out.end = state.position;
  }
  checksum.calc(nullptr, 0, true);
  out.checksum = checksum.checksum();
  return true;
}

// Takes the header of the next frame and moves behind it.
bool Stream_Data_Reader::next_frame(Frames& state, Frame_Header& frame) {
  const char* bytes = window_.view(state.position, frame_header_size);
  if (bytes == nullptr) {
    on_fault_(state.position, "compression frame runs past the end of the piece");
    return false;
  }
  frame = read_frame_header(bytes);
  if (!check_frame(frame, state)) return false;
  std::memcpy(state.header_bytes, bytes, frame_header_size);
  state.position += frame_header_size;
  state.left -= frame.uncompressed_size;
  state.out.end = state.position;
  return true;
}

// False if the frame can't be trusted to say where the next one starts.
bool Stream_Data_Reader::check_frame(const Frame_Header& frame, Frames& state) {
  const auto fault = [&](const char* text) { on_fault_(state.position, text); };
  if (const char* text = frame_fault(frame, state.left)) return fault(text), false;
  if (frame.remaining_stream_size != state.left) {
    fault("compression frame has a wrong remaining stream size");
  }
  if (frame.media_format_attributes != state.header.media_format_attributes) {
    fault("compression frame has other attributes than its stream");
  }
  if (frame.sequence_number != ++state.sequence % 255) {
    fault("compression frame has a wrong sequence number");
  }
  return true;
}

bool Stream_Data_Reader::give_frame(const Frame_Header& frame, const char* stored, Frames& state) {
  const char* data = stored;
  if (watch_ != nullptr && !state.giving) return true;
  // A frame that would not shrink holds its data as it came.
  if (frame.compressed_size != frame.uncompressed_size) {
    if (expanded_.size() < frame.uncompressed_size) expanded_.resize(frame.uncompressed_size);
    if (!decompress(state.header.compression, stored, frame.compressed_size, expanded_.data(),
                    frame.uncompressed_size)) {
      on_fault_(state.position, "compression frame can't be expanded");
      state.giving = false;
      return false;
    }
    data = expanded_.data();
  }
  if (state.giving) state.giving = state.sink(data, frame.uncompressed_size);
  return true;
}

const char* frame_fault(const Frame_Header& frame, unsigned long long left) {
  if (!frame.intact) return "compression frame header is damaged";
  if (frame.uncompressed_size == 0 || frame.uncompressed_size > left) {
    return "compression frame has a wrong uncompressed size";
  }
  if (frame.compressed_size > frame.uncompressed_size) {
    return "compression frame is larger than its data";
  }
  if (frame.uncompressed_size > Piece_Window::max_view) return "compression frame is too large";
  return nullptr;
}

}  // namespace MTF
