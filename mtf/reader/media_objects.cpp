#include "mtf/reader/media_objects.h"

#include <algorithm>

#include "mtf/reader/tree_place.h"
#include "platform/native_path.h"

namespace MTF {

std::string shown_name(const Found_Object& object) {
  const Block_Header& header = object.view.header;
  std::string text;
  if (!tree_text(header.type, header.string_type, object.name, text)) return object.name;
  std::string name;
  for (std::size_t at = 0; at <= text.size();) {
    const std::size_t end = std::min(text.find('\\', at), text.size());
    name += (at == 0 ? "" : "/") + platform::native_name(text.substr(at, end - at));
    at = end + 1;
  }
  return name;
}

void Media_Objects::run() {
  walker_.walk();
  give(false);
  if (ended_) return;
  on_fault_(window_.size(), "the media ends too early");
  listener_.on_gap();
}

void Media_Objects::on_block(const Media_Block& block) {
  const unsigned int type = block.view.header.type;
  give(type == block_cfil);
  ended_ = ended_ || type == block_eotm;
  block.view.layout->name != 0 ? hold(block) : listener_.on_frame(block);
}

void Media_Objects::hold(const Media_Block& block) {
  object_ = {};
  unsummed_ = false;
  object_.position = block.position;
  object_.bytes = block.view.bytes;
  object_.view = {block.view.header, block.view.layout, object_.bytes};
  object_.name = block_name(block.view);
  holding_ = true;
}

void Media_Objects::on_stream(const Media_Stream& stream) {
  if (stream.header.id != stream_spad) unsummed_ = stream.header.is(mf_checksummed);
  switch (stream.header.id) {
    case stream_meta:
      if (!holding_) listener_.on_metadata(stream.data_position, stream.header.length);
      break;
    case stream_fnam:
    case stream_pnam:
      if (object_.name.empty()) object_.name = stream.content;
      break;
    case stream_ctex:
      object_.stat = stream.content;
      break;
    case stream_link:
      object_.link = stream.content;
      break;
    case stream_spar:
      object_.sparse = true;
      if (stream.header.length > sparse_offset_size) {
        object_.stretches += stream.header.length - sparse_offset_size;
      }
      break;
    case stream_spad:
      if (object_.end == 0) object_.end = stream.position;
      break;
    default:
      break;
  }
}

void Media_Objects::on_gap() {
  give(false);
  listener_.on_gap();
}

void Media_Objects::give(bool corrupt) {
  if (!holding_) return;
  holding_ = false;
  object_.corrupt = corrupt;
  if (unsummed_) object_.end = 0;
  listener_.on_object(object_);
}

}  // namespace MTF
