// The entries of a base's catalog that an incremental job found unchanged.
#pragma once

#include <cstddef>
#include <string>
#include <unordered_set>
#include <vector>

#include "mtf/reader/catalog_walker.h"
#include "mtf/rescue/first_names.h"
#include "mtf/writer/catalog_stream.h"

namespace MTF {

// Goes through the catalog of the base in step with the media of the job: both have one order. Puts
// what the media doesn't hold anew into the new catalog, where it stood. Every operation gives
// false if the new catalog refuses an entry.
class Earlier_Entries {
 public:
  // `taken` has, sorted, the hash of the path of each directory of the job and of each file on its
  // other medias: a file of that name has gone. `first_names` is told of those that are kept. Keeps
  // the references.
  Earlier_Entries(IRandom_Reader& catalog, unsigned int seq,
                  const std::vector<unsigned long long>& taken, First_Names& first_names,
                  Catalog_Stream& out, const Fault_At& on_fault)
      : window_(catalog),
        walker_(window_, seq, on_fault),
        taken_(taken),
        first_names_(first_names),
        out_(out) {}

  void open();

  // The media goes to a volume, or to a directory of the volume that it is in. `date` is that of
  // the directory's block. Behind damage, with `gap`, directories on the way are kept.
  bool to_volume(const std::string& name, bool gap);
  bool to_directory(const std::string& name, std::string_view date, bool gap);

  // The media holds a file of this name in the directory that it is in; and what it holds is listed
  // in place of what the base has.
  bool to_file(const std::string& name);
  void replace_file(const std::string& name);

  // The media has no more.
  bool end(bool gap);

  unsigned long long kept() const { return kept_; }
  unsigned long long unsure() const { return unsure_; }

 private:
  // A directory, or the root of a volume: names with backslashes, the directory's with one at the
  // end.
  struct Place {
    std::string volume;
    std::string directory;
  };
  static int compare(const Place& a, const Place& b);

  void advance();
  bool at_file() const;
  bool go_to(const std::string& date, bool gap);
  bool leave();
  bool keep(bool unsure);
  bool is_gone(const std::string& path);
  bool add();

  Piece_Window window_;
  Catalog_Walker walker_;
  const std::vector<unsigned long long>& taken_;
  First_Names& first_names_;
  Catalog_Stream& out_;
  Catalog_Record record_{};
  bool at_end_ = false;
  Place here_;             // of record_
  Place wanted_;           // of the media
  bool in_place_ = false;  // the two are one
  bool changed_ = false;   // the directory's date is another than in the base
  std::string bytes_;
  std::unordered_set<unsigned long long> files_;  // numbers of those whose first name is kept
  unsigned long long kept_ = 0;
  unsigned long long unsure_ = 0;
};

}  // namespace MTF
