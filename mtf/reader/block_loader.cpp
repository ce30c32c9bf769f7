#include "mtf/reader/block_loader.h"

namespace MTF {
namespace {

constexpr unsigned long long longest_name = 32767;  // MTF_PATH_MAX

}  // namespace

bool load_block(Piece_Window& window, unsigned long long position, std::string& bytes,
                Media_Block& block) {
  const char* data = window.view(position, block_header_size);
  if (data == nullptr) return false;
  const Block_Header header = read_block_header(data);
  const Block_Layout* layout = block_layout(header.type);
  if (!header.intact || layout == nullptr || header.offset_to_first_event < layout->fixed_size) {
    return false;
  }
  data = window.view(position, header.offset_to_first_event);
  if (data == nullptr) return false;
  bytes.assign(data, header.offset_to_first_event);
  block = {position, {header, layout, bytes}};
  return true;
}

std::string name_of(Piece_Window& window, const Media_Block& block) {
  if ((block.view.header.attributes & attr_name_in_stream) == 0) {
    return std::string(block_name(block.view));
  }
  const unsigned long long position = block.position + block.view.bytes.size();
  const char* bytes = window.view(position, stream_header_size);
  if (bytes == nullptr) return {};
  const Stream_Header header = read_stream_header(bytes);
  const bool named = header.id == stream_fnam || header.id == stream_pnam;
  if (!header.intact || !named || header.length > longest_name) return {};
  const auto size = static_cast<std::size_t>(header.length);
  bytes = window.view(position + stream_header_size, size);
  return bytes == nullptr ? std::string() : std::string(bytes, size);
}

}  // namespace MTF
