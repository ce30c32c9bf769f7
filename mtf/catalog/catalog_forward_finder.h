// Looks up entries of an earlier catalog in the order in which a walk meets them.
#pragma once

#include <string>

#include "mtf/catalog/source_processor.h"

namespace MTF {

// A cursor that only moves forward: each look-up starts where the one before ended, and passes
// over what the walk would have met before the thing looked for. A look-up that finds nothing moves
// no further than to the first entry behind that place, so what comes later is still found. A
// look-up behind the cursor finds nothing.
//
// The order is that of a walk: volumes by their bytes; each directory ahead of the directories
// below it, in the order of oxbase::path_less; the names of a directory by their bytes. A catalog
// that isn't in this order isn't sound: a name in it has no checksum, and one that was damaged must
// not stand for another.
//
// After a look-up that found nothing failed() tells whether the catalog is to blame.
class Catalog_Forward_Finder : public Source_Processor {
 public:
  using Source_Processor::Source_Processor;

  // As of Source_Processor, with the cursor on the first entry.
  bool open(const std::string& path);

  // Moves to the directory `dir` of the volume `vol`, the root of the volume if `dir` is empty.
  // Both with backslashes, `dir` with one at its end. True if the catalog holds it; `out` is then a
  // view of the entry at the cursor.
  bool find(const std::string& vol, const std::string& dir, Cat_Blk& out);

  // Moves to the file-like entry `name` of a directory. True if the catalog holds it; `out` is then
  // a view of it, valid until the next call of the finder.
  bool find(const std::string& vol, const std::string& dir, const std::string& name, Cat_Blk& out);

  // Passes over all that is left, so that the whole catalog has been checked. False if it isn't
  // sound.
  bool finish();

 private:
  void advance();
  bool take();
  bool take_volume();
  bool take_directory();
  bool take_file();
  int compare(const std::string& vol, const std::string& dir) const;
  bool move_to(const std::string& vol, const std::string& dir);

  // The place of the entry at the cursor; the name is empty at a volume or directory.
  std::string vol_;
  std::string dir_;
  std::string file_name_;
  std::string scratch_;
  unsigned long long directories_ = 0;  // volumes and directories up to the cursor
  bool at_end_ = false;
};

}  // namespace MTF
