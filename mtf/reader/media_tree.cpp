#include "mtf/reader/media_tree.h"

#include <memory>
#include <optional>

#include "mtf/reader/media_catalog_cursor.h"
#include "mtf/reader/media_objects.h"
#include "services/piece_name.h"

namespace MTF {

// The way through one media.
class Media_Tree::Channel : private IObject_Listener {
 public:
  Channel(IRandom_Reader& media, const Job_Pieces& job, unsigned long long number,
          Tree_Place& place, const std::function<void(const Tree_Entry&)>& on_entry,
          const Fault_At& on_fault)
      : media_(media),
        job_(job),
        number_(number),
        place_(place),
        on_entry_(on_entry),
        on_fault_(on_fault),
        window_(media, Piece_Window::look_capacity),
        catalog_(window_) {
    place_.begin_channel();
  }

  void walk();
  void walk_corrupt();
  void list();

 private:
  void on_object(const Found_Object& object) override;
  void on_gap() override { gap_ = true; }

  void walk_blocks();
  void give_lost(unsigned long long address);
  void find_directory(const Found_Object& object);
  bool give(const Tree_Item& item, unsigned long long address, unsigned long long position,
            bool corrupt = false);

  IRandom_Reader& media_;
  const Job_Pieces& job_;
  const unsigned long long number_;
  Tree_Place& place_;
  const std::function<void(const Tree_Entry&)>& on_entry_;
  const Fault_At& on_fault_;
  Piece_Window window_;
  Media_Catalog_Cursor catalog_;
  std::optional<FDD_View> next_;  // of the media's catalog, where that is whole
  bool corrupt_ = false;          // give only what is
  bool gap_ = false;              // the next object comes behind damage
  // The number of the directory that the next file lies in; none where only its name is known.
  std::optional<unsigned int> directory_ = 0;
};

void Media_Tree::Channel::walk() {
  FDD_View first;
  if (catalog_.open(job_.seq) && catalog_.next(first)) next_ = first;
  walk_blocks();
}

void Media_Tree::Channel::walk_corrupt() {
  corrupt_ = true;
  walk_blocks();
}

void Media_Tree::Channel::list() {
  if (!catalog_.open(job_.seq)) {
    on_fault_(catalog_.fault_position(), catalog_.fault());
    return walk_blocks();
  }
  FDD_View entry;
  while (catalog_.next(entry)) {
    give({entry.type, entry.string_type, entry.size, entry.date, entry.name}, entry.address,
         catalog_.position());
  }
}

void Media_Tree::Channel::walk_blocks() {
  Piece_Window window(media_, Piece_Window::look_capacity);
  Media_Objects(window, *this, on_fault_, Walk_Depth::headers).run();
  if (gap_) give_lost(~0ULL);
}

void Media_Tree::Channel::on_object(const Found_Object& object) {
  const Block_Header& header = object.view.header;
  give_lost(header.format_logical_address);
  gap_ = false;
  find_directory(object);
  if (object.corrupt && !corrupt_) return;
  const std::string_view date = header.type == block_volb
                                    ? std::string_view()
                                    : object.view.date(file_at::last_modification_date);
  if (!give({header.type, header.string_type, header.displayable_size, date, object.name},
            header.format_logical_address, object.position, object.corrupt) ||
      object.end != 0 || corrupt_) {
    return;
  }
  on_fault_(object.position, "the content of '" + shown_name(object) + "' is damaged or cut off");
}

// Gives what stood in front of `address` by the media's catalog, and not by its blocks.
void Media_Tree::Channel::give_lost(unsigned long long address) {
  while (next_ && next_->address <= address) {
    const FDD_View& lost = *next_;
    if (gap_ && lost.address < address) {
      give({lost.type, lost.string_type, lost.size, lost.date, lost.name}, lost.address,
           catalog_.position());
      if (lost.type == block_dirb || lost.type == block_volb) directory_.reset();
    }
    FDD_View following;
    next_ = catalog_.next(following) ? std::optional(following) : std::nullopt;
  }
}

// The blocks of files hold the number of their directory.
void Media_Tree::Channel::find_directory(const Found_Object& object) {
  const unsigned int type = object.view.header.type;
  if (type == block_volb) return;
  place_.assume_volume();
  if (type == block_dirb) {
    directory_ = object.view.get<unsigned int>(dirb_at::directory_id);
    return;
  }
  const auto number = object.view.get<unsigned int>(file_at::directory_id);
  if (directory_.value_or(number) != number) {
    const std::string name = place_.enter_lost(number);
    on_fault_(object.position, "the name of this file's directory is lost: taken as " + name);
  }
  directory_ = number;
}

bool Media_Tree::Channel::give(const Tree_Item& item, unsigned long long address,
                               unsigned long long position, bool corrupt) {
  Tree_Entry out;
  if (!place_.find(item, out.entry)) {
    on_fault_(position, "entry has no place in the tree");
    return false;
  }
  out.again = !place_.first(out.entry);
  out.placed = true;
  out.entry.seq = job_.seq;
  out.entry.channel = number_;
  out.entry.address = address;
  out.name = item.name;
  if (corrupt == corrupt_) on_entry_(out);
  return true;
}

bool Media_Tree::walk(const std::function<void(const Tree_Entry&)>& on_entry) {
  return each_channel(on_entry, &Channel::walk);
}

bool Media_Tree::walk_corrupt(const std::function<void(const Tree_Entry&)>& on_entry) {
  return each_channel(on_entry, &Channel::walk_corrupt);
}

bool Media_Tree::list(const std::function<void(const Tree_Entry&)>& on_entry) {
  return each_channel(on_entry, &Channel::list);
}

bool Media_Tree::each_channel(const std::function<void(const Tree_Entry&)>& on_entry,
                              Walk_Channel walk) {
  bool sound = true;
  place_ = Tree_Place();
  for (const unsigned long long number : job_.channels) {
    std::string piece, error;
    mtf_name(job_.stem, job_.seq, number, piece);
    const Fault_At on_fault = [&](unsigned long long position, const std::string& text) {
      sound = false;
      if (on_fault_) on_fault_({piece, position, text});
    };
    const std::unique_ptr<IRandom_Reader> media = store_.open(piece, error);
    if (media == nullptr) {
      on_fault(0, "can't be opened: " + error);
      continue;
    }
    Channel channel(*media, job_, number, place_, on_entry, on_fault);
    (channel.*walk)();
  }
  return sound;
}

bool walk_tree(IPiece_Store& store, const Job_Pieces& job, bool from_media,
               const std::function<void(const Tree_Entry&)>& on_entry, const Fault_Sink& on_fault) {
  return from_media ? Media_Tree(store, job, on_fault).walk(on_entry)
                    : Job_Tree(store, job, on_fault).walk(on_entry);
}

bool list_job_from_media(IPiece_Store& store, const Job_Pieces& job,
                         const std::function<void(const Job_Entry&)>& on_entry,
                         const Fault_Sink& on_fault) {
  return Media_Tree(store, job, on_fault).list([&](const Tree_Entry& item) {
    if (!item.again) on_entry(item.entry);
  });
}

}  // namespace MTF
