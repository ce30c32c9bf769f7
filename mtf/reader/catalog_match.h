// The comparison of a catalog with the medias that it points into.
#pragma once

#include <string>
#include <string_view>
#include <unordered_set>

#include "mtf/reader/catalog_walker.h"
#include "mtf/reader/earlier_media.h"
#include "mtf/reader/media_listener.h"
#include "mtf/reader/tree_place.h"

namespace MTF {

// Walks a catalog in step with the media of its job: both have the blocks in one order, so neither
// is held in memory. Entries of earlier jobs are looked up in the medias of those jobs.
class Catalog_Match : public IMedia_Listener {
 public:
  // Keeps all references. `catalog` is open already. Without `media_known` the media of the job
  // isn't walked, and the entries that point into it are only counted.
  Catalog_Match(Catalog_Walker& catalog, Piece_Window& catalog_window, Piece_Window* media_window,
                unsigned int seq, Earlier_Media& earlier, const Fault_At& on_catalog_fault,
                const Fault_At& on_media_fault);

  void on_set(const Media_Set& set) override;
  void on_metadata(unsigned long long position, unsigned long long length) override;
  void on_object(const Media_Object& object) override;

  // Takes what the catalog holds behind the last object.
  void finish();

  unsigned long long entries() const { return entries_; }

 private:
  bool next_current();
  void take_entry();
  void take_place();
  void check_first_name(std::string_view path);
  void compare(const Media_Object& object);
  void check_earlier();
  void check_earlier_link(Media_File& media, const Media_Block& block);
  void check_set_of_earlier(Media_File& media);
  void compare_metadata(unsigned long long position);
  void fault(const std::string& text) { on_catalog_fault_(record_.position, text); }

  Catalog_Walker& catalog_;
  Piece_Window& catalog_window_;
  Piece_Window* media_window_;
  unsigned short seq_;
  Earlier_Media& earlier_;
  const Fault_At& on_catalog_fault_;
  const Fault_At& on_media_fault_;

  Catalog_Record record_;
  bool waiting_ = false;  // record_ is an entry of this job that no object has met yet
  bool ended_ = false;
  bool volume_seen_ = false;
  bool set_seen_ = false;
  bool metadata_seen_ = false;
  Media_Set set_{};
  unsigned long long entries_ = 0;
  Tree_Place place_;
  // The first names of files that have several, each as a hash of its path and the file's number.
  std::unordered_set<unsigned long long> first_names_;
  // The last set that was looked up in an earlier media.
  struct Known_Set {
    unsigned int seq;
    unsigned long long address;
    signed char time_zone;
  };
  bool known_ = false;
  Known_Set known_set_{};
};

}  // namespace MTF
