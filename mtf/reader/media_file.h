// A look at single blocks of a media, for those who know where they stand.
#pragma once

#include <memory>
#include <string>

#include "mtf/reader/media_walker.h"
#include "mtf/reader/piece_store.h"

namespace MTF {

// One media of a storage, open for looks here and there. Used by one thread.
class Media_File {
 public:
  // Opens the media `name`; null, with `error` set, if it can't be opened.
  static std::unique_ptr<Media_File> open(IPiece_Store& store, const std::string& name,
                                          std::string& error);

  // The block at a format logical address; false, with `why` set, if no sound block of `type`
  // stands there. The views of `block` are valid until the next call.
  bool find_block(unsigned long long address, unsigned int type, Media_Block& block,
                  std::string& why);

  Piece_Window& window() { return window_; }

 private:
  explicit Media_File(std::unique_ptr<IRandom_Reader> reader)
      : reader_(std::move(reader)), window_(*reader_, Piece_Window::look_capacity) {}

  std::unique_ptr<IRandom_Reader> reader_;
  Piece_Window window_;
  Media_Geometry geometry_;
  std::string bytes_;
};

}  // namespace MTF
