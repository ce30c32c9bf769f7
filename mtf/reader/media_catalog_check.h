// The check of the type 1 media based catalog (TFDD and TSMP streams) of a media.
#pragma once

#include <string>

#include "mtf/reader/media_check.h"

namespace MTF {

// Compares each entry of a media's own catalog with the block that it tells of.
class Media_Catalog_Check {
 public:
  // `walk` has walked the media of job `seq` that `window` shows. Keeps all references.
  Media_Catalog_Check(Piece_Window& window, unsigned int seq, const Media_Check& walk,
                      const Fault_At& on_fault)
      : window_(window),
        entry_window_(window.reader(), Piece_Window::look_capacity),
        seq_(static_cast<unsigned short>(seq)),
        walk_(walk),
        on_fault_(on_fault) {}

  void run();

 private:
  void check_detail();
  bool check_detail_entry(unsigned long long& position, unsigned long long end);
  void check_end(unsigned long long position, unsigned long long end, unsigned short length);
  void check_set_map();
  void check_set_entry(unsigned long long position, const std::string& entry);
  void check_set_counts(unsigned long long position, const std::string& entry);
  void check_entry(unsigned long long position, const std::string& entry);
  void check_strings(unsigned long long position, const std::string& entry,
                     const Media_Block& block);
  bool load(unsigned long long position, unsigned long long end, std::size_t size,
            std::string& bytes);
  bool load_entry(unsigned long long position, unsigned long long end, std::string& entry);
  bool find_block(unsigned long long address, unsigned int type, Media_Block& block);
  void check(bool right, unsigned long long position, const char* text);

  Piece_Window& window_;       // goes from block to block
  Piece_Window entry_window_;  // and this one from entry to entry, far behind them
  unsigned short seq_;
  const Media_Check& walk_;
  const Fault_At& on_fault_;
  std::string block_bytes_;
  unsigned long long last_address_ = 0;
  unsigned long long entries_ = 0;
  unsigned long long address_sum_ = 0;
};

}  // namespace MTF
