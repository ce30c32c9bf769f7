// The view of a job over its catalogs and medias.
#pragma once

#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "mtf/reader/job_view.h"
#include "mtf/reader/view_medias.h"
#include "mtf/reader/viewed_file.h"

namespace MTF {

class Job_Viewer final : public Job_View {
 public:
  // Keeps the reference.
  Job_Viewer(IPiece_Store& store, const Job_Pieces& job) : job_(job), medias_(store, job.stem) {}

  void build(IPiece_Store& store, const Fault_Sink& on_fault, const Problem_Sink& on_problem) {
    tree_.build(store, job_, on_fault, on_problem);
  }

  const View_Tree& tree() const override { return tree_; }
  std::shared_ptr<const View_Attributes> attributes(View_Tree::Number number,
                                                    std::string& why) override;
  std::shared_ptr<View_File> open_file(View_Tree::Number number, std::string& why) override;

 private:
  friend class Viewed_File;

  View_Medias::Loan find_block(View_Tree::Number number, Media_Block& block, std::string& why);
  bool is_block_of(View_Tree::Number number, Media_File& media, const Media_Block& block) const;
  bool is_place_right(View_Tree::Number number, const Media_Block& block, std::string& why);
  std::shared_ptr<const View_Attributes> load(View_Tree::Number number, std::string& why);
  std::shared_ptr<const View_Attributes> load_further(View_Tree::Number number, std::string& why);
  void remember(View_Tree::Number number, const std::shared_ptr<const View_Attributes>& attributes);

  struct Known {
    View_Tree::Number number;
    std::shared_ptr<const View_Attributes> attributes;
  };

  const Job_Pieces job_;
  View_Tree tree_;
  View_Medias medias_;
  std::mutex mutex_;
  std::list<Known> known_;  // the one used last is the first
  std::unordered_map<View_Tree::Number, std::list<Known>::iterator> places_;
  unsigned long long known_bytes_ = 0;
  std::list<std::shared_ptr<Viewed_File>> files_;  // large ones that were checked
};

}  // namespace MTF
