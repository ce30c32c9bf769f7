// The tree of a job in little memory, as its catalogs give it.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "mtf/reader/jobs.h"

namespace MTF {

// Bytes in a unit of `View_Node::space`.
constexpr unsigned long long space_unit = 1024;

struct View_Node {
  unsigned long long address;  // format logical address on the media
  unsigned long long size;     // of a file; of a directory, the place of its first child
  unsigned int type;           // a Block_Type; block_volb for the root and for volumes
  unsigned int name;           // place of its native name
  unsigned int parent;         // the root is its own
  unsigned int channel;
  unsigned int space;    // of a file, KiB on its disk; of a directory, how many children it has
  unsigned int first;    // of a further name (HLNK) the first one's number; the root if not known
  unsigned int further;  // of a first name, how many others the file has
  unsigned short seq;    // the job whose media holds it; 0 for one that no catalog names
  bool uncertain;        // the catalog is damaged in front of it: its directory may be another
  bool is_directory;
};

// Holds the tree in a few large pieces of memory: 48 bytes for each entry, 4 for its place among
// the entries of its directory, and each name once. The same catalogs always give the same numbers.
// After build() it doesn't change and may be used by several threads.
class View_Tree {
 public:
  using Number = unsigned int;
  static constexpr Number root = 0;
  static constexpr Number none = ~0U;

  View_Tree();

  // Reads the catalogs of a job. What is damaged is told to `on_fault`; an entry that no directory
  // can hold, and one whose volume has no place, is told to `on_problem` and left out. Both may be
  // empty. A further name whose first one the catalogs don't tell costs a look at its media.
  void build(IPiece_Store& store, const Job_Pieces& job, const Fault_Sink& on_fault,
             const Problem_Sink& on_problem);

  Number size() const { return static_cast<Number>(nodes_.size()); }
  const View_Node& node(Number number) const { return nodes_[number]; }
  // Valid as long as the tree.
  std::string_view name(Number number) const { return text(nodes_[number].name); }

  // The number of the entry that has the content of `number`: for a further name the first one,
  // where that is known; else `number` itself.
  Number content_of(Number number) const {
    return nodes_[number].first != root ? nodes_[number].first : number;
  }

  // The entry `name` of a directory; `none` if it has none.
  Number find(Number directory, std::string_view name) const;

  // The entry of a path in system form; `none` if it has no place.
  Number find(const std::string& system_path) const;

  // The child at `place` of a directory, in the order of the names; `none` behind the last one.
  Number child(Number directory, unsigned int place) const;

  // The native path below the root, such as "/home/me/a.txt"; "/" for the root.
  std::string path(Number number) const;

  // Bytes that the tree takes.
  unsigned long long memory() const;

 private:
  friend class View_Tree_Builder;

  bool is_full() const;
  std::string_view text(unsigned int name) const;
  unsigned int add_text(std::string_view text);
  void order_children();
  void drop_doubles(Number directory);
  void join_names(IPiece_Store& store, const Job_Pieces& job);
  Number read_first_name(Link_Targets& targets, const View_Node& node) const;

  std::deque<View_Node> nodes_;
  std::vector<Number> children_;  // of one directory after the other
  std::vector<std::unique_ptr<char[]>> texts_;
  unsigned int texts_end_ = 0;
};

}  // namespace MTF
