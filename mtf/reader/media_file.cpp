#include "mtf/reader/media_file.h"

#include "mtf/reader/block_loader.h"

namespace MTF {

std::unique_ptr<Media_File> Media_File::open(IPiece_Store& store, const std::string& name,
                                             std::string& error) {
  std::unique_ptr<IRandom_Reader> reader = store.open(name, error);
  if (reader == nullptr) return nullptr;
  std::unique_ptr<Media_File> media(new Media_File(std::move(reader)));
  // Behind a damaged TAPE block the rest is still there, in blocks of the usual sizes.
  Media_Block tape;
  if (load_block(media->window_, 0, media->bytes_, tape) && tape.view.header.type == block_tape) {
    read_geometry(tape.view, media->geometry_);
  }
  return media;
}

bool Media_File::find_block(unsigned long long address, unsigned int type, Media_Block& block,
                            std::string& why) {
  if (address > window_.size() / geometry_.logical) {
    why = "lies behind the end of the media";
    return false;
  }
  const unsigned long long position = address * geometry_.logical;
  if (!block_stands_at(window_, geometry_, position) ||
      !load_block(window_, position, bytes_, block)) {
    why = "no sound block stands at its address";
    return false;
  }
  if (block.view.header.type != type) {
    why = "a " + block_word(block.view.header.type) + " block stands at its address";
    return false;
  }
  return true;
}

}  // namespace MTF
