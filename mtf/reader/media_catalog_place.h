// The way to the catalog of a media from the end of the media.
#pragma once

#include <string>

#include "mtf/reader/media_walker.h"

namespace MTF {

// Where the media based catalog of a media stands. A part that is missing has the place 0.
struct Media_Catalog_Place {
  unsigned long long tfdd = 0;  // position of the TFDD stream's data
  unsigned long long tfdd_length = 0;
  unsigned long long tsmp = 0;
  unsigned long long tsmp_length = 0;
};

// Finds the catalog of the media of job `seq`: TAPE block, EOTM block, last ESET block, streams.
class Media_Catalog_Finder {
 public:
  // Keeps the reference.
  explicit Media_Catalog_Finder(Piece_Window& window) : window_(window) {}

  // False, with `why` set, if there is none or if the way to it is damaged.
  bool find(unsigned int seq, Media_Catalog_Place& place, std::string& why);

  // How many files the last ESET block says are corrupt; false if the way to it is damaged.
  bool corrupt_files(unsigned int& count);

  const Media_Geometry& geometry() const { return geometry_; }

 private:
  bool find_end(Media_Block& eotm);
  bool find_eset(Media_Block& eset, std::string& why);
  bool find_stream(unsigned long long position, unsigned int id, unsigned long long& data,
                   unsigned long long& length);
  bool load(unsigned long long position, unsigned int type, Media_Block& block);

  Piece_Window& window_;
  Media_Geometry geometry_;
  std::string bytes_;
};

}  // namespace MTF
