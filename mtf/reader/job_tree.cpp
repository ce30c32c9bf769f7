#include "mtf/reader/job_tree.h"

#include <memory>
#include <unordered_map>

#include "services/piece_name.h"
#include "services/text.h"

namespace MTF {
bool Job_Tree::walk(const std::function<void(const Tree_Entry&)>& on_entry) {
  sound_ = true;
  place_ = Tree_Place();
  for (const unsigned long long channel : job_.channels) walk_catalog(channel, on_entry);
  return sound_;
}

void Job_Tree::walk_catalog(unsigned long long channel,
                            const std::function<void(const Tree_Entry&)>& on_entry) {
  std::string piece;
  cat_name(job_.stem, job_.seq, channel, piece);
  std::string error;
  const std::unique_ptr<IRandom_Reader> reader = store_.open(piece, error);
  if (reader == nullptr) return fault(piece, 0, "can't be opened: " + error);
  const Fault_At on_fault = [&](unsigned long long position, const std::string& text) {
    fault(piece, position, text);
  };
  Piece_Window window(*reader);
  Catalog_Walker walker(window, job_.seq, on_fault);
  walker.open();
  place_.begin_channel();
  Catalog_Record record;
  Tree_Entry item;
  while (walker.next(record)) {
    Job_Entry& entry = item.entry;
    if (!place_.find({record.type, record.string_type, record.size, record.date, record.name},
                     entry)) {
      on_fault(record.position, "entry has no place in the tree");
      continue;
    }
    item.again = !place_.first(entry);
    entry.seq = record.seq;
    entry.channel = channel;
    entry.address = record.address;
    item.name = record.name;
    item.space = record.space;
    item.ino = record.ino;
    item.first_name = (record.flags & cat_first_link) != 0;
    on_entry(item);
  }
}

void Job_Tree::fault(const std::string& piece, unsigned long long position,
                     const std::string& text) {
  sound_ = false;
  if (on_fault_) on_fault_({piece, position, text});
}

namespace {

// Tells further names which file they are of, by its number: the first one stands ahead of them, in
// the catalog of the same channel.
class File_Finder {
 public:
  void note(const Tree_Entry& item) {
    const Job_Entry& entry = item.entry;
    if (entry.channel != channel_) files_.clear();
    channel_ = entry.channel;
    if (!item.first_name) return;
    const Job_Entry::File file{entry.type, entry.size, entry.seq, entry.address};
    const auto [place, added] = files_.try_emplace(item.ino, file);
    if (!added) place->second.reset();  // the number stands for two files
  }

  std::optional<Job_Entry::File> find(const Tree_Entry& item) const {
    const auto found = files_.find(item.ino);
    return found == files_.end() ? std::nullopt : found->second;
  }

 private:
  std::unordered_map<unsigned long long, std::optional<Job_Entry::File>> files_;
  unsigned long long channel_ = 0;
};

}  // namespace

bool list_job(IPiece_Store& store, const Job_Pieces& job,
              const std::function<void(const Job_Entry&)>& on_entry, const Fault_Sink& on_fault) {
  Job_Tree tree(store, job, on_fault);
  File_Finder files;
  return tree.walk([&](const Tree_Entry& item) {
    if (item.again) return;
    files.note(item);
    if (item.entry.type != block_hlnk) return on_entry(item.entry);
    Job_Entry entry = item.entry;
    entry.file = files.find(item);
    on_entry(entry);
  });
}

}  // namespace MTF
