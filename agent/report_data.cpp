#include "agent/report_data.h"

#include <algorithm>

#include "mtf/reader/corrupt_files.h"
#include "mtf/reader/view_tree.h"
#include "platform/native_path.h"
#include "services/text.h"

namespace agent {
namespace {

using MTF::View_Tree;

constexpr std::size_t longest_list = 20;

// What the size of an entry counts for: links have no content of their own.
unsigned long long content_bytes(unsigned int type, unsigned long long size) {
  return type == MTF::block_slnk || type == MTF::block_hlnk ? 0 : size;
}

// Bytes and files of a directory with all below it, by its number.
struct Sums {
  std::vector<unsigned long long> bytes, files;

  explicit Sums(const View_Tree& tree) : bytes(tree.size()), files(tree.size()) {
    // A directory has a lower number than what is in it.
    for (View_Tree::Number number = tree.size(); number-- > 1;) {
      const MTF::View_Node& node = tree.node(number);
      if (!node.is_directory) {
        bytes[number] = content_bytes(node.type, node.size);
        files[number] = 1;
      }
      bytes[node.parent] += bytes[number];
      files[node.parent] += files[number];
    }
  }
};

// The largest of what was added.
class Largest {
 public:
  void add(unsigned long long bytes, View_Tree::Number number) {
    if (bytes == 0) return;
    found_.emplace_back(bytes, number);
    if (found_.size() == 64 * longest_list) cut();
  }

  const std::vector<std::pair<unsigned long long, View_Tree::Number>>& cut() {
    std::sort(found_.rbegin(), found_.rend());
    if (found_.size() > longest_list) found_.resize(longest_list);
    return found_;
  }

 private:
  std::vector<std::pair<unsigned long long, View_Tree::Number>> found_;
};

std::vector<Sized_Path> paths_of(const View_Tree& tree, const Sums& sums, Largest& largest) {
  std::vector<Sized_Path> paths;
  for (const auto& [bytes, number] : largest.cut()) {
    paths.push_back({tree.path(number), bytes, sums.files[number]});
  }
  return paths;
}

// True if one sub-directory has all the bytes of a directory: listing both would tell nothing new.
bool only_passes(const View_Tree& tree, View_Tree::Number directory,
                 const std::vector<unsigned long long>& bytes) {
  View_Tree::Number child;
  for (unsigned int at = 0; (child = tree.child(directory, at)) != View_Tree::none; ++at) {
    if (tree.node(child).is_directory && bytes[child] == bytes[directory]) return true;
  }
  return false;
}

void list_largest(const View_Tree& tree, const Sums& sums, Report_Data& out) {
  Largest directories, files;
  for (View_Tree::Number number = 0; number < tree.size(); ++number) {
    if (!tree.node(number).is_directory) {
      files.add(sums.bytes[number], number);
    } else if (!only_passes(tree, number, sums.bytes)) {
      directories.add(sums.bytes[number], number);
    }
  }
  out.directories = paths_of(tree, sums, directories);
  out.files = paths_of(tree, sums, files);
}

// The directories of `tree` that have more bytes than in `before`.
void list_grown(const View_Tree& tree, const Sums& sums, const View_Tree& before,
                Report_Data& out) {
  const Sums sums_before(before);
  std::vector<View_Tree::Number> same(tree.size(), View_Tree::none);
  std::vector<unsigned long long> more(tree.size());
  same[View_Tree::root] = View_Tree::root;
  for (View_Tree::Number number = 0; number < tree.size(); ++number) {
    const MTF::View_Node& node = tree.node(number);
    if (!node.is_directory) continue;
    if (number != View_Tree::root && same[node.parent] != View_Tree::none) {
      same[number] = before.find(same[node.parent], tree.name(number));
    }
    const unsigned long long was =
        same[number] == View_Tree::none ? 0 : sums_before.bytes[same[number]];
    more[number] = sums.bytes[number] > was ? sums.bytes[number] - was : 0;
  }
  Largest grown;
  for (View_Tree::Number number = 0; number < tree.size(); ++number) {
    if (tree.node(number).is_directory && !only_passes(tree, number, more)) {
      grown.add(more[number], number);
    }
  }
  out.grown = paths_of(tree, sums, grown);
}

void list_corrupt(MTF::IPiece_Store& store, const MTF::Job_Pieces& job, Report_Job& out) {
  if (out.corrupt == 0) return;
  MTF::list_corrupt(store, job, [&](const std::string& path) {
    if (out.corrupt_paths.size() < longest_list) {
      out.corrupt_paths.push_back(platform::display_path(path));
    }
  });
}

}  // namespace

bool gather_report(MTF::IPiece_Store& store, const std::string& stem, unsigned int seq,
                   Report_Data& out, std::string& error) {
  std::vector<MTF::Job_Pieces> jobs;
  if (!MTF::find_jobs(store, stem, jobs, error)) return false;
  out.stem = stem;
  const MTF::Job_Pieces* chosen = nullptr;
  const MTF::Job_Pieces* before = nullptr;
  for (const MTF::Job_Pieces& job : jobs) {
    out.jobs.push_back({facts_of(store, job), MTF::corrupt_count(store, job), {}});
    list_corrupt(store, job, out.jobs.back());
    if (seq == 0 ? !job.complete : job.seq > seq) continue;
    if (chosen != nullptr && chosen->complete) before = chosen;
    chosen = &job;
  }
  if (chosen == nullptr || (seq != 0 && chosen->seq != seq)) {
    error = seq == 0 ? "there is no complete job of '" + stem + "'"
                     : "there is no job " + std::to_string(seq) + " of '" + stem + "'";
    return false;
  }
  out.seq = chosen->seq;
  View_Tree tree;
  tree.build(store, *chosen, {}, {});
  const Sums sums(tree);
  list_largest(tree, sums, out);
  if (before == nullptr) return true;
  out.before = before->seq;
  View_Tree earlier;
  earlier.build(store, *before, {}, {});
  list_grown(tree, sums, earlier, out);
  return true;
}

}  // namespace agent
