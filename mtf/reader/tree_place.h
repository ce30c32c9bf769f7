// Where an entry stands in the tree of a job.
#pragma once

#include <string>
#include <string_view>
#include <unordered_set>

#include "mtf/reader/jobs.h"

namespace MTF {

// 64 bits that stand for a path.
unsigned long long hash_of(std::string_view path);

// What a catalog says of an entry.
struct Tree_Item {
  unsigned int type;
  unsigned char string_type;
  unsigned long long size;
  std::string_view date;  // of the last modification, 5 bytes, or empty
  std::string_view name;
};

// The name of an entry as text, in system form: the path of a volume or directory, without
// separators around it, or the last name of any other. False for an unknown string type.
bool tree_text(unsigned int type, unsigned char string_type, std::string_view name,
               std::string& out);

// Follows the entries of a channel in their order: what a name means depends on the volume and
// the directory before it. Remembers 8 bytes for each directory of a job.
class Tree_Place {
 public:
  // Starts with the entries of a channel.
  void begin_channel();

  // Fills type, path, size and date of `entry`. False for a name of unknown string type, for no
  // name, and for an entry without a volume.
  bool find(const Tree_Item& item, Job_Entry& entry);

  // Behind damage: what follows without a volume lies in `/`; what follows lies in the directory
  // with this number, whose name is lost. Gives the name that stands for it.
  void assume_volume();
  std::string enter_lost(unsigned int directory_id);

  // False for a volume or directory that came before, in any channel.
  bool first(const Job_Entry& entry);

 private:
  bool find_path(const Tree_Item& item, std::string& path);

  std::string volume_;
  std::string directory_;  // below the volume, with a trailing backslash; empty for its root
  std::unordered_set<unsigned long long> given_;
};

}  // namespace MTF
