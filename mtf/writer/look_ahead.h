// What is told of files before it is their turn to be written.
#pragma once

#include <string>

namespace MTF {

// Used by the thread of one writer. Nothing here throws: what runs short of memory wants no more.
class Look_Ahead {
 public:
  virtual ~Look_Ahead() = default;

  // True while blocks should be taken ahead; to be asked once for each block that is written.
  virtual bool is_wanted() = 0;
  // True while a further block may be added.
  virtual bool has_room() const = 0;
  // Tells of a block that will be written behind those that were added before: the system path of
  // its file and the size that the walk saw. The path is empty where there is no file to read.
  virtual void add(const std::string& path, unsigned long long size) = 0;
  // The oldest block that was added is written now.
  virtual void remove_oldest() = 0;
};

}  // namespace MTF
