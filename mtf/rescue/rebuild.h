// Makes lost catalogs again from the medias of a job and the catalogs of the job that it started
// from.
#pragma once

#include <string>

#include "mtf/reader/jobs.h"

namespace MTF {

enum class Catalog_State {
  sound,    // its headers, counts and end are right; names and dates have no checksum
  missing,  // it isn't there, or can't be opened
  damaged,
};

Catalog_State catalog_state(IPiece_Store& store, const Job_Pieces& job, unsigned long long channel);

// The job that an incremental one started from, as the metadata on any of its pieces tells; 0 for a
// full job and where nothing tells it.
unsigned int base_of(IPiece_Store& store, const Job_Pieces& job);

struct Rebuild_Summary {
  unsigned long long saved = 0;     // entries of what stands on the job's own media
  unsigned long long earlier = 0;   // entries taken over from the base's catalog
  unsigned long long unsure = 0;    // of these, those that may have been deleted before the job
  unsigned long long left_out = 0;  // files of the media that aren't whole, each told to on_fault
  unsigned int lost_base = 0;       // the base whose catalog isn't there or is damaged; 0 for none
  bool metadata_lost = false;
};

// Makes the catalog of `channel` of `job` again, in the local file `path` (native), in place of one
// that is there. Reads the media whole and lists what is right on it, as the job listed it, but for
// what no media holds: the file numbers of a job that isn't plain (a hard-linked file gets another
// one, and the next incremental job saves it anew), and the space on disk, which is taken in blocks
// of 4096 bytes.
//
// A media doesn't hold what an incremental job found unchanged. These entries come from the catalog
// of its base, which must be sound for that: of each directory that stands on the media all files
// that the media doesn't hold anew. A file that was deleted before the job looks the same and is
// kept; so is one that the job could not read. Where damage may have taken blocks from the media,
// the base's directories are kept too, and so is the earlier state of a file that isn't whole.
//
// False, with `error` set, if the media can't be opened, is another job's or has no sound block, or
// if the file can't be written. `on_fault` may be empty.
bool rebuild_catalog(IPiece_Store& store, const Job_Pieces& job, unsigned long long channel,
                     const std::string& path, Rebuild_Summary& summary, const Fault_Sink& on_fault,
                     std::string& error);

}  // namespace MTF
