#include "mtf/catalog/catalog_forward_finder.h"

#include <algorithm>

#include "oxbase/directory_iterator.h"
#include "services/text.h"

namespace MTF {

bool Catalog_Forward_Finder::open(const std::string& path) {
  if (!Source_Processor::open(path)) return false;
  advance();
  return !failed();
}

bool Catalog_Forward_Finder::find(const std::string& vol, const std::string& dir, Cat_Blk& out) {
  if (!move_to(vol, dir)) return false;
  out.set_buffer(entry());
  return true;
}

bool Catalog_Forward_Finder::find(const std::string& vol, const std::string& dir,
                                  const std::string& name, Cat_Blk& out) {
  if (!move_to(vol, dir)) return false;
  const unsigned long long directory = directories_;
  while (!at_end_ && directories_ == directory && file_name_ < name) advance();
  if (at_end_ || directories_ != directory || file_name_ != name) return false;
  out.set_buffer(entry());
  return true;
}

bool Catalog_Forward_Finder::finish() {
  while (!at_end_) advance();
  return !failed();
}

bool Catalog_Forward_Finder::move_to(const std::string& vol, const std::string& dir) {
  int order = 1;
  while (!at_end_ && (order = compare(vol, dir)) < 0) advance();
  return !at_end_ && order == 0;
}

// Where the directory at the cursor stands to the one that is wanted.
int Catalog_Forward_Finder::compare(const std::string& vol, const std::string& dir) const {
  const int order = vol_.compare(vol);
  if (order != 0) return order;
  if (dir_ == dir) return 0;
  return oxbase::path_less(dir_, dir) ? -1 : 1;
}

void Catalog_Forward_Finder::advance() {
  do {
    if (!next()) {
      at_end_ = true;
      return;
    }
    // The walk never meets pre-action data, so the cursor passes over its entry.
  } while (entry().hdr().type() == block_pdat);
  if (!take()) at_end_ = true;
}

bool Catalog_Forward_Finder::take() {
  const unsigned int type = entry().hdr().type();
  if (type == block_volb) return take_volume();
  if (vol_.empty()) return fail("an entry stands in front of the first volume");
  return type == block_dirb ? take_directory() : take_file();
}

bool Catalog_Forward_Finder::take_volume() {
  scratch_ = name();
  std::replace(scratch_.begin(), scratch_.end(), '\0', separator());
  if (scratch_ <= vol_) return fail("a volume is out of order");
  vol_.swap(scratch_);
  dir_.clear();
  file_name_.clear();
  ++directories_;
  return true;
}

bool Catalog_Forward_Finder::take_directory() {
  scratch_ = name();
  std::replace(scratch_.begin(), scratch_.end(), '\0', separator());
  if (!oxbase::path_less(dir_, scratch_)) return fail("a directory is out of order");
  dir_.swap(scratch_);
  file_name_.clear();
  ++directories_;
  return true;
}

bool Catalog_Forward_Finder::take_file() {
  if (name() <= file_name_) return fail("a name is out of order");
  file_name_ = name();
  return true;
}

}  // namespace MTF
