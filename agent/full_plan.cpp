#include "agent/full_plan.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <set>
#include <utility>

#include "agent/exit_code.h"
#include "agent/paths.h"
#include "agent/stem.h"
#include "agent/text.h"
#include "mtf/reader/jobs.h"
#include "platform/native_path.h"
#include "platform/stat.h"
#include "services/compression.h"
#include "services/source_list.h"

namespace agent {
namespace {

constexpr const char* given_twice = ": the volume has another directory already";

std::string in_quotes(const std::string& text) {
  return '\'' + escape_controls(text) + '\'';
}

class Planner {
 public:
  Planner(const Full_Options& options, IStorage& storage, Full_Plan& plan, std::string& error)
      : options_(options), storage_(storage), plan_(plan), error_(error) {}

  int run() {
    plan_.compression = options_.compression == "lz4"    ? MTF::compression_lz4
                        : options_.compression == "zstd" ? MTF::compression_zstd
                                                         : MTF::compression_none;
    if (!set_volumes() || !set_shadows() || !resolve_sources() || !check_volumes() ||
        !resolve_excludes()) {
      return exit_usage;
    }
    if (!examine_shadows() || !examine_sources() || !refuse_links() ||
        !storage_.open_for_job(options_.stem, !options_.incremental, error_)) {
      return exit_failed;
    }
    if (!exclude_storage()) return exit_usage;
    return make_work_dir() && find_seq() && find_base() ? exit_done : exit_failed;
  }

 private:
  bool fail(const std::string& line) {
    error_ = line;
    return false;
  }

  bool absolute(const std::string& path, std::string& out) {
    return absolute_path(path, out) ||
           fail("the path " + in_quotes(path) + " can't be made absolute");
  }

  // The system form of a path as it was typed.
  bool system_form(const std::string& path, std::string& out) {
    std::string full;
    if (!absolute(path, full)) return false;
    return platform::system_path(full, out) || fail(in_quotes(path) + " is no path");
  }

  bool set_volumes() {
    for (const std::string& text : options_.volumes) {
      std::string volume, directory;
      if (!split_assignment(text, volume, directory) || !absolute(directory, directory) ||
          !platform::Volume_Roots::instance().set(volume, directory)) {
        return fail("--volume " + in_quotes(text) + ": a volume is given as X:=DIR");
      }
      if (!keep(volumes_, volume, directory))
        return fail("--volume " + in_quotes(text) + given_twice);
    }
    return true;
  }

  bool set_shadows() {
    for (const std::string& text : options_.shadows) {
      std::string volume, shadow;
      if (!split_assignment(text, volume, shadow) || !platform::is_volume(volume) ||
          !absolute(shadow, shadow)) {
        return fail("--shadow " + in_quotes(text) +
                    ": a shadow volume is given as X:=DIR or /=DIR");
      }
      if (!keep(plan_.shadows, volume, shadow)) {
        return fail("--shadow " + in_quotes(text) + given_twice);
      }
    }
    return true;
  }

  // False if `volume` has another directory.
  static bool keep(std::map<std::string, std::string>& directories, const std::string& volume,
                   const std::string& directory) {
    return directories.emplace(volume, directory).first->second == directory;
  }

  // A shadow that no source uses was probably meant for another volume.
  bool check_volumes() {
    const auto is_used = [&](const auto& volume) {
      return std::any_of(system_sources_.begin(), system_sources_.end(), [&](const auto& source) {
        return source.compare(0, volume.first.size(), volume.first) == 0;
      });
    };
    for (const auto& [option, directories] :
         {std::pair("--volume ", &volumes_), std::pair("--shadow ", &plan_.shadows)}) {
      const auto unused = std::find_if_not(directories->begin(), directories->end(), is_used);
      if (unused != directories->end()) {
        return fail(option + in_quotes(unused->first) + ": no source is on this volume");
      }
    }
    return true;
  }

  bool examine_shadows() {
    for (const auto& [volume, shadow] : plan_.shadows) {
      std::string system;
      _stat64 record;
      int error =
          platform::system_path(shadow, system) ? platform::stat_target(system, record) : errno;
      if (error == 0 && !S_ISDIR(record.st_mode)) error = ENOTDIR;
      if (error != 0) {
        return fail(error_text(
            "the shadow " + in_quotes(shadow) + " of the volume '" + volume + "'", error));
      }
    }
    return true;
  }

  bool resolve_sources() {
    for (const std::string& source : options_.sources) {
      std::string full, system;
      if (!absolute(source, full) || !system_form(source, system)) return false;
      plan_.sources.push_back(full);
      system_sources_.push_back(system);
    }
    return true;
  }

  bool resolve_excludes() {
    std::list<std::string> defaults;
    MTF::generate_exclude_list(defaults);
    for (const std::string& entry : defaults) {
      std::string system;
      if (platform::system_path(entry, system) && !covered_source({system})) {
        plan_.excludes.push_back(system);
      }
    }
    for (const std::string& exclude : options_.excludes) {
      std::string system;
      if (!system_form(exclude, system)) return false;
      if (const std::string* source = covered_source({system})) {
        return fail("--exclude " + in_quotes(exclude) + " leaves nothing of the source " +
                    in_quotes(platform::display_path(*source)));
      }
      plan_.excludes.push_back(system);
      plan_.user_excludes.push_back(system);
    }
    return true;
  }

  // The first source that is an entry of `list` or lies below one; null if none is.
  const std::string* covered_source(const std::list<std::string>& list) const {
    const auto found =
        std::find_if(system_sources_.begin(), system_sources_.end(),
                     [&](const std::string& source) { return MTF::is_exclude(list, source); });
    return found == system_sources_.end() ? nullptr : &*found;
  }

  // True if the source's volume has a shadow: then it need only be there.
  bool has_shadow(const std::string& source) const {
    return std::any_of(plan_.shadows.begin(), plan_.shadows.end(), [&](const auto& shadow) {
      return source.compare(0, shadow.first.size(), shadow.first) == 0;
    });
  }

  bool examine_sources() {
    for (const std::string& source : system_sources_) {
      if (has_shadow(source)) continue;
      const std::string name = "the source " + in_quotes(platform::display_path(source));
      _stat64 record;
      const int error = platform::stat_link(source, record);
      if (error != 0) return fail(error_text(name, error));
      if (!S_ISDIR(record.st_mode) && !S_ISREG(record.st_mode) && !S_ISLNK(record.st_mode)) {
        return fail(name + " is neither a directory nor a file");
      }
      if (platform::is_volume(source) && !S_ISDIR(record.st_mode)) {
        return fail(name + " stands for the volume '" + source + "' and isn't a directory");
      }
    }
    return true;
  }

  bool refuse_links() {
    for (const std::string& source : system_sources_) {
      std::string target;
      if (is_link(source, target)) {
        return fail("the source " + in_quotes(platform::display_path(source)) +
                    " is a symbolic link to " + in_quotes(target) + ": name what it leads to");
      }
    }
    return true;
  }

  // The paths by which a walk may meet a directory of the job's own: as it was given, and with all
  // links resolved.
  std::set<std::string> system_forms(const std::string& path) const {
    std::set<std::string> forms;
    for (const std::string& way : {path, real_path(path)}) {
      std::string system;
      if (platform::system_path(way, system)) forms.insert(system);
    }
    return forms;
  }

  // A walk that meets the storage must not save the pieces that the job writes there.
  bool exclude_storage() {
    const std::string directory = storage_.directory();
    if (directory.empty()) return true;
    for (const std::string& system : system_forms(directory)) {
      if (const std::string* source = covered_source({system})) {
        return fail("the source " + in_quotes(platform::display_path(*source)) +
                    " lies in the storage " + in_quotes(directory));
      }
      plan_.excludes.push_back(system);
    }
    return true;
  }

  bool make_work_dir() {
    if (!open_work_directory(storage_, options_.stem, options_.tmp, plan_.work_dir, error_)) {
      return false;
    }
    for (const std::string& system : system_forms(plan_.work_dir.path())) {
      plan_.excludes.push_back(system);
    }
    return true;
  }

  bool find_seq() {
    if (!newest_seq(storage_, options_.stem, plan_.seq, error_)) return false;
    return plan_.seq < last_seq ||
           fail("the sequence numbers of '" + options_.stem + "' are used up: take another name");
  }

  // The job that an incremental one starts from: the one that was asked for, or the newest whole
  // one.
  bool find_base() {
    if (!options_.incremental) return true;
    std::vector<MTF::Job_Pieces> jobs;
    if (!MTF::find_jobs(storage_, options_.stem, jobs, error_)) return false;
    const MTF::Job_Pieces* base = nullptr;
    for (const MTF::Job_Pieces& job : jobs) {
      if (options_.base == 0 ? job.complete : job.seq == options_.base) base = &job;
    }
    if (base == nullptr && options_.base == 0) {
      return fail("there is no complete job of '" + options_.stem +
                  "' to start from: run a full job first");
    }
    if (base == nullptr) {
      return fail("there is no job " + std::to_string(options_.base) + " of '" + options_.stem +
                  "' to start from");
    }
    plan_.base_seq = base->seq;
    return check_base(*base) && check_chain(*base, jobs);
  }

  static std::string title(const MTF::Job_Pieces& job) {
    return "job " + std::to_string(job.seq) + " of '" + job.stem + "'";
  }

  bool check_base(const MTF::Job_Pieces& base) {
    if (!base.complete)
      return fail(title(base) + " is not complete: an incremental job can't start from it");
    if (base.channels.size() == options_.channels) return true;
    return fail(title(base) + " has " + count_text(base.channels.size(), "channel") +
                ", and an incremental job must have as many: give --channels " +
                std::to_string(base.channels.size()));
  }

  // The new job would take over what its base took from an earlier job, so that must be there too.
  bool check_chain(const MTF::Job_Pieces& base, const std::vector<MTF::Job_Pieces>& jobs) {
    const unsigned int lost = MTF::find_lost_job(storage_, base, jobs);
    return lost == 0 || fail(title(base) + " needs job " + std::to_string(lost) +
                             ", which isn't complete: run a full job, or name another --base");
  }

  const Full_Options& options_;
  IStorage& storage_;
  Full_Plan& plan_;
  std::string& error_;
  std::map<std::string, std::string> volumes_;
  std::vector<std::string> system_sources_;
};

}  // namespace

int make_full_plan(const Full_Options& options, IStorage& storage, Full_Plan& plan,
                   std::string& error) {
  return Planner(options, storage, plan, error).run();
}

bool split_assignment(const std::string& text, std::string& name, std::string& value) {
  const std::size_t at = text.find('=');
  if (at == std::string::npos || at == 0 || at + 1 == text.size()) return false;
  name = text.substr(0, at);
  value = text.substr(at + 1);
  return true;
}

}  // namespace agent
