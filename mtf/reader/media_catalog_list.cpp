#include <algorithm>
#include <memory>

#include "mtf/reader/fdd_view.h"
#include "mtf/reader/jobs.h"
#include "mtf/reader/media_catalog_place.h"
#include "mtf/reader/tree_place.h"
#include "services/piece_name.h"

namespace MTF {
namespace {

constexpr std::size_t longest_entry = 65535;

// What the entries of a media are compared with at the end.
struct Entry_Counts {
  unsigned int volumes = 0;
  unsigned int directories = 0;
  unsigned int files = 0;
};

// Gives the entries of the catalogs that the medias of a job carry.
class Media_Catalog_List {
 public:
  // Keeps all references.
  Media_Catalog_List(IPiece_Store& store, const Job_Pieces& job,
                     const std::function<void(const Job_Entry&)>& on_entry,
                     const Fault_Sink& on_fault)
      : store_(store), job_(job), on_entry_(on_entry), on_fault_(on_fault) {}

  bool run() {
    for (const unsigned long long channel : job_.channels) list_channel(channel);
    return sound_;
  }

 private:
  void list_channel(unsigned long long channel);
  void list_entries(Piece_Window& window, const Media_Geometry& geometry,
                    const Media_Catalog_Place& place);
  bool take_entry(Piece_Window& window, const Media_Geometry& geometry,
                  unsigned long long& position, unsigned long long end);
  void give(unsigned long long position, const FDD_View& view);
  void check_counts(Piece_Window& window, const Media_Catalog_Place& place);
  bool fault(unsigned long long position, const std::string& text);

  IPiece_Store& store_;
  const Job_Pieces& job_;
  const std::function<void(const Job_Entry&)>& on_entry_;
  const Fault_Sink& on_fault_;
  bool sound_ = true;
  Tree_Place tree_;
  std::string piece_;
  Job_Entry entry_{};
  unsigned long long last_address_ = 0;
  Entry_Counts counts_;
};

bool Media_Catalog_List::fault(unsigned long long position, const std::string& text) {
  sound_ = false;
  if (on_fault_) on_fault_({piece_, position, text});
  return false;
}

void Media_Catalog_List::list_channel(unsigned long long channel) {
  mtf_name(job_.stem, job_.seq, channel, piece_);
  std::string error;
  const std::unique_ptr<IRandom_Reader> reader = store_.open(piece_, error);
  if (reader == nullptr) {
    fault(0, "can't be opened: " + error);
    return;
  }
  Piece_Window window(*reader, Piece_Window::look_capacity);
  Media_Catalog_Finder finder(window);
  Media_Catalog_Place place;
  if (!finder.find(job_.seq, place, error)) {
    fault(0, error);
    return;
  }
  tree_.begin_channel();
  last_address_ = 0;
  counts_ = Entry_Counts();
  entry_.seq = job_.seq;
  entry_.channel = channel;
  Piece_Window entries(*reader);
  list_entries(entries, finder.geometry(), place);
}

void Media_Catalog_List::list_entries(Piece_Window& window, const Media_Geometry& geometry,
                                      const Media_Catalog_Place& place) {
  unsigned long long position = place.tfdd;
  const unsigned long long end = position + place.tfdd_length;
  while (position < end) {
    if (!take_entry(window, geometry, position, end)) return;
  }
  check_counts(window, place);
}

// Moves behind one entry, at the last one to `end`. False if what follows can't be read.
bool Media_Catalog_List::take_entry(Piece_Window& window, const Media_Geometry& geometry,
                                    unsigned long long& position, unsigned long long end) {
  const auto size =
      static_cast<std::size_t>(std::min<unsigned long long>(longest_entry, end - position));
  const char* bytes = window.view(position, size);
  if (bytes == nullptr) return fault(position, "catalog of the media can't be read");
  if (size == fdd_header_size && load_le<unsigned int>(bytes + fdd_at::type) == block_fend) {
    position = end;
    return true;
  }
  FDD_View view;
  if (!read_fdd_entry({bytes, size}, view)) return fault(position, "TFDD entry is damaged");
  if (view.seq != static_cast<unsigned short>(job_.seq)) {
    return fault(position, "entry belongs to another media");
  }
  if (view.address <= last_address_ || view.address >= window.size() / geometry.logical) {
    return fault(position, "entry points to a wrong place on the media");
  }
  last_address_ = view.address;
  give(position, view);
  position += view.length;
  if (position == end) return fault(position, "TFDD stream has no FEND entry");
  return true;
}

void Media_Catalog_List::give(unsigned long long position, const FDD_View& view) {
  ++(view.type == block_volb   ? counts_.volumes
     : view.type == block_dirb ? counts_.directories
                               : counts_.files);
  if (!tree_.find({view.type, view.string_type, view.size, view.date, view.name}, entry_)) {
    fault(position, "entry has no place in the tree");
    return;
  }
  entry_.address = view.address;
  if (tree_.first(entry_)) on_entry_(entry_);
}

void Media_Catalog_List::check_counts(Piece_Window& window, const Media_Catalog_Place& place) {
  const unsigned long long position = place.tsmp + set_map_header_size;
  const char* bytes = place.tsmp_length < set_map_header_size + sm_entry_size
                          ? nullptr
                          : window.view(position, sm_entry_size);
  if (bytes == nullptr ||
      load_le<unsigned int>(bytes + sm_at::directories) != counts_.directories ||
      load_le<unsigned int>(bytes + sm_at::files) != counts_.files ||
      load_le<unsigned short>(bytes + sm_at::volumes) != counts_.volumes) {
    fault(position, "set map counts other entries than the TFDD stream has");
  }
}

}  // namespace

bool list_job_from_media(IPiece_Store& store, const Job_Pieces& job,
                         const std::function<void(const Job_Entry&)>& on_entry,
                         const Fault_Sink& on_fault) {
  return Media_Catalog_List(store, job, on_entry, on_fault).run();
}

}  // namespace MTF
