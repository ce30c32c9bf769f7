// The entries of the catalog that a media carries, one after the other.
#pragma once

#include <string>

#include "mtf/reader/fdd_view.h"
#include "mtf/reader/media_catalog_place.h"

namespace MTF {

// Gives the entries of a TFDD stream in the order of their blocks.
class Media_Catalog_Cursor {
 public:
  // Keeps the reference.
  explicit Media_Catalog_Cursor(Piece_Window& window) : window_(window), finder_(window) {}

  // Finds the catalog of the media of job `seq` and looks at all of it. False if there is none or
  // if anything of it is damaged; fault() and fault_position() tell what. Called once, first.
  bool open(unsigned int seq);

  // The next entry; false behind the last one. Its views are valid until the next call.
  bool next(FDD_View& entry);

  // Where the entry that next() gave stands.
  unsigned long long position() const { return entry_position_; }

  const std::string& fault() const { return fault_; }
  unsigned long long fault_position() const { return fault_position_; }

 private:
  // What the entries of a media are compared with at the end.
  struct Counts {
    unsigned int volumes = 0;
    unsigned int directories = 0;
    unsigned int files = 0;
  };

  void rewind();
  bool check_counts(const Counts& counts);
  bool fail(unsigned long long position, const char* text);

  Piece_Window& window_;
  Media_Catalog_Finder finder_;
  Media_Catalog_Place place_;
  unsigned int seq_ = 0;
  unsigned long long position_ = 0;
  unsigned long long entry_position_ = 0;
  unsigned long long last_address_ = 0;
  std::string fault_;
  unsigned long long fault_position_ = 0;
};

}  // namespace MTF
