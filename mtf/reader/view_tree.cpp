#include "mtf/reader/view_tree.h"

#include <algorithm>
#include <map>
#include <unordered_map>

#include "mtf/reader/job_tree.h"
#include "mtf/reader/number_table.h"
#include "platform/native_path.h"
#include "services/text.h"

namespace MTF {
namespace {

constexpr unsigned int text_chunk_bits = 16;
constexpr unsigned int text_chunk = 1U << text_chunk_bits;
constexpr std::size_t longest_node_name = 255;  // a byte in front of each name holds its length
constexpr const char* tree_full = "the tree holds as many names as it can";

std::size_t hash_of_place(View_Tree::Number parent, unsigned int name) {
  return (parent * 0x9E3779B97F4A7C15ULL ^ name * 0xC2B2AE3D27D4EB4FULL) >> 16;
}

// Why a directory can't hold an entry of this name; null if it can.
const char* name_fault(const std::string& name) {
  if (name.empty() || name == "." || name == "..") return "its name means a directory";
  if (name.find_first_of(std::string("/\0", 2)) != std::string::npos) {
    return "its name holds a slash or NUL";
  }
  return name.size() > longest_node_name ? "its name is too long" : nullptr;
}

}  // namespace

// Puts the entries of the catalogs into the tree in the order of the walk.
class View_Tree_Builder {
 public:
  View_Tree_Builder(View_Tree& tree, const Problem_Sink& on_problem)
      : tree_(tree), on_problem_(on_problem) {}

  void take(const Tree_Entry& item) {
    switch (item.entry.type) {
      case block_volb:
      case block_dirb:
        place_ = directory_of(item);
        uncertain_ = false;
        break;
      case block_pdat:  // data for the host, no part of the tree
        break;
      default:
        take_file(item);
    }
  }

  // The entry that can't be read may have been a directory. The next entries may belong to it.
  void note_damage() { uncertain_ = true; }

 private:
  using Number = View_Tree::Number;

  Number directory_of(const Tree_Entry& item);
  Number volume_of(const std::string& path);
  void take_file(const Tree_Entry& item);
  bool enter(const Tree_Entry& item, const std::string& name, Number& number);
  Number step(Number parent, const std::string& name);
  void take_name(const Tree_Entry& item, Number number);
  unsigned int intern(std::string_view text);
  View_Node node_of(const Tree_Entry& item, Number parent, unsigned int name) const;
  Number add(const View_Node& node);
  void refuse(const Tree_Entry& item, const std::string& why) {
    if (on_problem_) on_problem_(platform::display_path(item.entry.path), why);
  }

  View_Tree& tree_;
  const Problem_Sink& on_problem_;
  Number place_ = View_Tree::none;
  bool uncertain_ = false;
  Number_Table names_;
  Number_Table directories_;
  std::map<std::string, std::string> volumes_;  // by the first name below the root
  // First names of the channel by the numbers of their files; the root for a number of two files.
  std::unordered_map<unsigned long long, Number> first_names_;
  unsigned long long channel_ = 0;
};

unsigned int View_Tree_Builder::intern(std::string_view text) {
  return names_.find_or_add(
      hash_of(text), [&](unsigned int name) { return tree_.text(name) == text; },
      [&] { return tree_.add_text(text); },
      [&](unsigned int name) { return hash_of(tree_.text(name)); });
}

View_Node View_Tree_Builder::node_of(const Tree_Entry& item, Number parent,
                                     unsigned int name) const {
  const Job_Entry& entry = item.entry;
  const unsigned long long space = std::min<unsigned long long>(item.space / space_unit, ~0U);
  View_Node node{};
  node.address = entry.address;
  node.type = entry.type;
  node.name = name;
  node.parent = parent;
  node.channel = static_cast<unsigned int>(entry.channel);
  node.seq = static_cast<unsigned short>(entry.seq);
  node.is_directory = entry.type == block_dirb;
  if (node.is_directory) return node;
  node.size = entry.size;
  node.space = static_cast<unsigned int>(space);
  node.uncertain = uncertain_;
  return node;
}

View_Tree::Number View_Tree_Builder::add(const View_Node& node) {
  tree_.nodes_.push_back(node);
  return tree_.size() - 1;
}

// The directory `name` of `parent`; one that no catalog has named yet is made.
View_Tree::Number View_Tree_Builder::step(Number parent, const std::string& name) {
  const unsigned int text = intern(name);
  return directories_.find_or_add(
      hash_of_place(parent, text),
      [&](Number number) {
        return tree_.node(number).parent == parent && tree_.node(number).name == text;
      },
      [&] {
        View_Node node{};
        node.type = block_volb;
        node.name = text;
        node.parent = parent;
        node.is_directory = true;
        return add(node);
      },
      [&](Number number) {
        return hash_of_place(tree_.node(number).parent, tree_.node(number).name);
      });
}

// Goes from `number` to its directory `name`. False, with the reason told, if that has no place.
bool View_Tree_Builder::enter(const Tree_Entry& item, const std::string& name, Number& number) {
  const char* why = tree_.is_full() ? tree_full : name_fault(name);
  // `/C` and the volume `C:` would have one place. The one that comes first keeps it.
  if (why == nullptr && number == View_Tree::root && name.size() == 1) {
    const std::string volume = item.entry.path.substr(0, item.entry.path.find('\\'));
    if (volumes_.try_emplace(name, volume).first->second != volume) {
      why = "its place has another volume";
    }
  }
  if (why != nullptr) return refuse(item, why), false;
  number = step(number, name);
  return true;
}

// Brings in the directory or volume of an entry, with all above it; `none` if it has no place.
View_Tree::Number View_Tree_Builder::directory_of(const Tree_Entry& item) {
  const std::string& path = item.entry.path;
  std::size_t end = path.find('\\');
  const std::string volume = path.substr(0, end);
  if (!platform::is_volume(volume)) return refuse(item, "not a path of a volume"), View_Tree::none;
  Number number = View_Tree::root;
  if (volume != "/" && !enter(item, volume.substr(0, 1), number)) return View_Tree::none;
  while (end != std::string::npos) {
    const std::size_t start = end + 1;
    end = path.find('\\', start);
    const std::string name = platform::native_name(path.substr(start, end - start));
    if (!enter(item, name, number)) return View_Tree::none;
  }
  View_Node& node = tree_.nodes_[number];
  if (item.entry.type == block_dirb && node.type == block_volb) {
    node = node_of(item, node.parent, node.name);
  }
  return number;
}

void View_Tree_Builder::take_file(const Tree_Entry& item) {
  if (place_ == View_Tree::none) return refuse(item, "its directory has no place");
  const std::string& path = item.entry.path;
  const std::string name = platform::native_name(path.substr(path.rfind('\\') + 1));
  const char* why = tree_.is_full() ? tree_full : name_fault(name);
  if (why != nullptr) return refuse(item, why);
  take_name(item, add(node_of(item, place_, intern(name))));
}

// A further name stands behind the first one, in the catalog of the same channel.
void View_Tree_Builder::take_name(const Tree_Entry& item, Number number) {
  if (item.entry.channel != channel_) first_names_.clear();
  channel_ = item.entry.channel;
  if (item.ino == 0) return;
  if (item.entry.type == block_hlnk) {
    const auto first = first_names_.find(item.ino);
    if (first != first_names_.end()) tree_.nodes_[number].first = first->second;
  } else if (item.first_name) {
    const auto [place, added] = first_names_.try_emplace(item.ino, number);
    if (!added) place->second = View_Tree::root;
  }
}

View_Tree::View_Tree() {
  View_Node top{};
  top.type = block_volb;
  top.is_directory = true;
  top.name = add_text({});
  nodes_.push_back(top);
}

void View_Tree::build(IPiece_Store& store, const Job_Pieces& job, const Fault_Sink& on_fault,
                      const Problem_Sink& on_problem) {
  {
    View_Tree_Builder builder(*this, on_problem);
    const Fault_Sink on_damage = [&](const Fault& fault) {
      builder.note_damage();
      if (on_fault) on_fault(fault);
    };
    Job_Tree(store, job, on_damage).walk([&](const Tree_Entry& item) { builder.take(item); });
  }
  order_children();
  join_names(store, job);
}

bool View_Tree::is_full() const {
  return texts_.size() == 1U << (32 - text_chunk_bits) || size() == none - 1;
}

std::string_view View_Tree::text(unsigned int name) const {
  const char* bytes = texts_[name >> text_chunk_bits].get() + (name & (text_chunk - 1));
  return {bytes + 1, static_cast<unsigned char>(bytes[0])};
}

unsigned int View_Tree::add_text(std::string_view text) {
  const std::size_t room = texts_.size() * std::size_t{text_chunk} - texts_end_;
  if (room < text.size() + 1) {
    texts_end_ = static_cast<unsigned int>(texts_.size()) * text_chunk;
    texts_.push_back(std::unique_ptr<char[]>(new char[text_chunk]));
  }
  const unsigned int place = texts_end_;
  char* bytes = texts_.back().get() + (place & (text_chunk - 1));
  bytes[0] = static_cast<char>(text.size());
  text.copy(bytes + 1, text.size());
  texts_end_ += static_cast<unsigned int>(text.size() + 1);
  return place;
}

// Sorts the entries by their directories, and those of a directory by their names.
void View_Tree::order_children() {
  for (Number number = 1; number < size(); ++number) ++nodes_[nodes_[number].parent].space;
  unsigned int place = 0;
  for (View_Node& node : nodes_) {
    if (!node.is_directory) continue;
    node.size = place;
    place += node.space;
    node.space = 0;
  }
  children_.resize(place);
  for (Number number = 1; number < size(); ++number) {
    View_Node& parent = nodes_[nodes_[number].parent];
    children_[parent.size + parent.space++] = number;
  }
  for (Number number = 0; number < size(); ++number) {
    if (nodes_[number].is_directory) drop_doubles(number);
  }
}

// If a name stands twice in a directory, a sub-directory is kept rather than a file. Of two files
// the later one is kept, as a restore would replace the first one by it.
void View_Tree::drop_doubles(Number directory) {
  View_Node& node = nodes_[directory];
  const auto begin = children_.begin() + static_cast<std::ptrdiff_t>(node.size);
  const auto end = begin + node.space;
  std::sort(begin, end, [this](Number a, Number b) {
    const int order = name(a).compare(name(b));
    return order != 0 ? order < 0 : a > b;
  });
  auto kept = begin;
  for (auto each = begin; each != end; ++each) {
    if (kept == begin || name(*(kept - 1)) != name(*each)) {
      *kept++ = *each;
    } else if (nodes_[*each].is_directory) {
      *(kept - 1) = *each;
    }
  }
  node.space = static_cast<unsigned int>(kept - begin);
}

// The media tells what the catalogs don't where two files have the same number.
void View_Tree::join_names(IPiece_Store& store, const Job_Pieces& job) {
  Link_Targets targets(store, job);
  for (Number number = 1; number < size(); ++number) {
    View_Node& node = nodes_[number];
    if (node.type != block_hlnk) continue;
    if (node.first == root) node.first = read_first_name(targets, node);
    const bool shown = find(node.parent, name(number)) == number;
    if (shown && node.first != root) ++nodes_[node.first].further;
  }
}

View_Tree::Number View_Tree::read_first_name(Link_Targets& targets, const View_Node& node) const {
  const Job_Entry entry{node.type,    {},           node.size, 0, node.seq,
                        node.channel, node.address, false,     {}};
  std::string path;
  std::string why;
  if (!targets.find(entry, path, why)) return root;
  const Number first = find(path);
  const bool fits =
      first != none && !nodes_[first].is_directory && nodes_[first].type != block_hlnk;
  return fits ? first : root;
}

View_Tree::Number View_Tree::find(const std::string& system_path) const {
  std::size_t end = system_path.find('\\');
  const std::string volume = system_path.substr(0, end);
  Number number = volume == "/" ? root : find(root, volume.substr(0, 1));
  while (end != std::string::npos && number != none) {
    const std::size_t start = end + 1;
    end = system_path.find('\\', start);
    number = find(number, platform::native_name(system_path.substr(start, end - start)));
  }
  return number;
}

View_Tree::Number View_Tree::find(Number directory, std::string_view wanted) const {
  const View_Node& node = nodes_[directory];
  if (!node.is_directory) return none;
  const auto begin = children_.begin() + static_cast<std::ptrdiff_t>(node.size);
  const auto end = begin + node.space;
  const auto found = std::lower_bound(
      begin, end, wanted,
      [this](Number number, std::string_view text) { return name(number) < text; });
  return found != end && name(*found) == wanted ? *found : none;
}

View_Tree::Number View_Tree::child(Number directory, unsigned int place) const {
  const View_Node& node = nodes_[directory];
  return node.is_directory && place < node.space ? children_[node.size + place] : none;
}

std::string View_Tree::path(Number number) const {
  std::vector<std::string_view> names;
  for (; number != root; number = nodes_[number].parent) names.push_back(name(number));
  std::string path = names.empty() ? "/" : "";
  for (auto each = names.rbegin(); each != names.rend(); ++each) (path += '/') += *each;
  return path;
}

unsigned long long View_Tree::memory() const {
  return nodes_.size() * sizeof(View_Node) + children_.capacity() * sizeof(Number) +
         texts_.size() * text_chunk;
}

}  // namespace MTF
