// What is different in two jobs.
#pragma once

#include <functional>

#include "mtf/reader/jobs.h"

namespace MTF {

struct Job_Change {
  enum class Kind { added, removed, changed };

  Kind kind;
  Job_Entry entry;  // of the second job; what was removed, of the first
  // Of what was changed, what about it.
  bool type = false;
  bool content = false;       // of a link, what it leads to; of a device, its number
  bool attributes = false;    // date, owner, mode, extended attributes; of a directory not its date
  bool links = false;         // it became or ceased to be a further name, or is one of another file
  unsigned int old_type = 0;  // in the first job
};

// Compares two jobs of one name by their catalogs and gives what was added, changed and removed
// from the first to the second, in no order. What both take from one place on one media is the same
// and isn't read. Of what stands in two places content and attributes are read and compared; with
// `quick` a file is then the same where its size and date are, and a directory always. A file whose
// data moved between holes and zero bytes counts as changed. A further name is compared by the file
// that it names, and so is one that was or became a file's only or first name. Memory: some 200
// bytes for each entry of the first job. What can't be read is told to `on_fault`, which may be
// empty, and counts as changed. False if anything could not be read. `same` counts what isn't
// given.
bool compare_jobs(IPiece_Store& store, const Job_Pieces& first, const Job_Pieces& second,
                  bool quick, const std::function<void(const Job_Change&)>& on_change,
                  unsigned long long& same, const Fault_Sink& on_fault);

}  // namespace MTF
