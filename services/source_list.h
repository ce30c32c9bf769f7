// From the host's source strings to the entries of a job, and the exclude list.
#pragma once

#include <list>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/stat.h"
#include "services/filter.h"

namespace MTF {

// One resolved source of a job.
struct source_entry {
  std::string name;  // the volume of a root path; else the parent path with its last separator
  std::string path;  // the full path; a directory other than a root has a separator at its end
  _stat64 stat;      // of the path, under its shadow volume where it has one
};

// Paths of sources in system form; that of a directory has a separator at its end.
using Source_Paths = std::set<std::string>;

// Resolves `sources`, native or system paths, to entries in the order in which they are saved. A
// source that lies under a directory that is a source is left out, as it is saved with that one,
// unless that one is excluded; `covered`, which may be null, gets its path. Brings `exclude_list`
// to system form as well. False, with a line at LM_ERROR that names the path, for one that can't be
// resolved or examined. `filter` judges what the walk finds, not what is named here.
bool to_source_list_type(const std::list<std::string>& sources,
                         std::list<std::string>& exclude_list, const IFilter* filter,
                         const std::map<std::string, std::string>* volume_map,
                         std::list<source_entry>& out, Source_Paths* covered = nullptr);

// The names in the directory `dir` that lead to a path of `paths`; that of a directory has a
// separator at its end.
std::vector<std::string> names_in(const Source_Paths& paths, const std::string& dir);

// Puts sources into the order of the walk: depth first, in a directory the non-directories ahead of
// the directories.
void sort(std::list<source_entry>& list, char separator);

// Leaves out of a sorted list what lies below a directory in it, or stands there already, so that
// nothing is saved twice.
void drop_covered(std::list<source_entry>& list, char separator);

// Adds the default exclude list: kernel file systems and the default temporary directory.
void generate_exclude_list(std::list<std::string>& out);

// True if `path` is an entry of `list` or lies below one. Both in system form.
bool is_exclude(const std::list<std::string>& list, const std::string& path);

}  // namespace MTF
