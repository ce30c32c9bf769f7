// The catalog of one media, made from what stands on it.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "mtf/reader/media_objects.h"
#include "mtf/reader/tree_place.h"
#include "mtf/rescue/earlier_entries.h"
#include "mtf/rescue/first_names.h"
#include "mtf/rescue/rebuild.h"

namespace MTF {

// Takes the objects of a media and puts their entries into a catalog. Used once.
class Catalog_Rebuilder : public IObject_Listener {
 public:
  // For the media of job `seq`. `earlier` may be null. `first_names` has what the further names on
  // the media lead to. `lost_volume` names the volume of a media whose VOLB block is lost. Keeps
  // all references.
  Catalog_Rebuilder(unsigned int seq, Catalog_Stream& out, Earlier_Entries* earlier,
                    First_Names& first_names, const std::function<std::string()>& lost_volume,
                    Rebuild_Summary& summary, const Fault_At& on_fault)
      : seq_(static_cast<unsigned short>(seq)),
        out_(out),
        earlier_(earlier),
        first_names_(first_names),
        lost_volume_(lost_volume),
        summary_(summary),
        on_fault_(on_fault) {}

  // Every fault of the walk, before what it tells of: a file with one isn't whole.
  void note_fault(unsigned long long position) { faults_.push_back(position); }

  void on_frame(const Media_Block& block) override;
  void on_object(const Found_Object& object) override;
  void on_gap() override { gap_ = true; }

  // Behind the walk. False if the catalog could not be written.
  bool end();

  // True if a sound block was met.
  bool met() const { return met_; }

 private:
  bool is_damaged(const Found_Object& object);
  bool take_volume(const Found_Object& object);
  bool enter_lost_volume(const Found_Object& object);
  bool take_directory(const Found_Object& object);
  bool take_file(const Found_Object& object);
  bool leave_out(const Found_Object& object, const char* why);
  struct File_Facts {
    unsigned long long number = 0;
    bool first = false;
  };
  bool know_file(const Found_Object& object, File_Facts& facts);
  std::string take_path(const Found_Object& object);
  bool add(const Found_Object& object, const File_Facts& facts);
  template <class Blk>
  bool add_file(bool (Catalog_Stream::*operation)(const Blk&, unsigned long long,
                                                  unsigned long long, unsigned short,
                                                  const std::string&),
                const Found_Object& object, const File_Facts& facts, unsigned long long space);
  bool hold(std::string_view bytes);

  const unsigned short seq_;
  Catalog_Stream& out_;
  Earlier_Entries* earlier_;
  First_Names& first_names_;
  const std::function<std::string()>& lost_volume_;
  Rebuild_Summary& summary_;
  const Fault_At& on_fault_;
  Buffer block_{8};
  std::vector<unsigned long long> faults_;     // of what hasn't been met yet
  std::optional<unsigned int> directory_ = 0;  // that the next file lies in, by its number
  Tree_Place place_;  // of what comes next, with the names that the blocks have
  bool in_volume_ = false;
  bool gap_ = false;
  bool met_ = false;
  bool failed_ = false;
};

}  // namespace MTF
