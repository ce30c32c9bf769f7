#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <vector>

#include "agent/commands.h"
#include "agent/entry_text.h"
#include "agent/exit_code.h"
#include "agent/job_choice.h"
#include "agent/json_text.h"
#include "agent/paths.h"
#include "agent/text.h"
#include "mtf/reader/jobs.h"
#include "oxbase/directory_iterator.h"
#include "platform/glob.h"
#include "platform/native_path.h"
#include "services/text.h"

namespace agent {
namespace {

// One state of an entry, and the jobs that have it.
struct State {
  MTF::Job_Entry entry;
  std::string kind;
  std::vector<unsigned int> jobs;  // rising
};

// True for an entry that a later job may carry over. Directories each job writes anew.
bool is_file(const MTF::Job_Entry& entry) {
  return entry.type != MTF::block_volb && entry.type != MTF::block_dirb;
}

bool same_state(const MTF::Job_Entry& a, const MTF::Job_Entry& b) {
  return a.type == b.type && a.mtime == b.mtime && a.dated == b.dated &&
         (!is_file(a) || (a.seq == b.seq && a.address == b.address && a.channel == b.channel));
}

class Finder {
 public:
  Finder(const Find_Options& options, Console& console) : options_(options), console_(console) {}

  void look_at(MTF::IPiece_Store& store, const MTF::Job_Pieces& job) {
    MTF::Link_Targets targets(store, job);
    const auto on_entry = [&](const MTF::Job_Entry& entry) {
      if (matches(entry.path)) add(entry, job.seq, targets);
    };
    const auto on_fault = [&](const MTF::Fault& fault) {
      console_.note("error: " + fault_text(fault));
    };
    if (!MTF::list_job(store, job, on_entry, on_fault)) code_ = exit_failed;
  }

  int report() {
    if (!options_.job.json && !found_.empty()) console_.line(header());
    for (const auto& [path, states] : found_) {
      for (const State& state : states) {
        console_.line(options_.job.json ? json(path, state) : line(path, state));
      }
    }
    if (found_.empty()) console_.note("no job of '" + options_.job.stem + "' holds such a name");
    return found_.empty() ? exit_failed : code_;
  }

 private:
  bool matches(const std::string& path) const {
    const std::string native = platform::display_path(path);
    const std::string name = native.substr(native.rfind('/') + 1);
    return std::any_of(options_.patterns.begin(), options_.patterns.end(),
                       [&](const std::string& pattern) {
                         const bool whole = pattern.find('/') != std::string::npos;
                         return platform::glob_match(pattern, whole ? native : name);
                       });
  }

  void add(const MTF::Job_Entry& entry, unsigned int job, MTF::Link_Targets& targets) {
    std::vector<State>& states = found_[entry.path];
    if (states.empty() || !same_state(states.back().entry, entry)) {
      states.push_back({entry, kind_text(entry, targets), {}});
    }
    states.back().jobs.push_back(job);
  }

  static std::string header() { return columns("JOBS", "IN", "TYPE", "SIZE", "CHANGED") + "PATH"; }

  static std::string columns(const std::string& jobs, const std::string& in,
                             const std::string& type, const std::string& size,
                             const std::string& date) {
    char text[120];
    std::snprintf(text, sizeof text, "%-12s %5s  %-8s %15s  %-19s  ", jobs.c_str(), in.c_str(),
                  type.c_str(), size.c_str(), date.c_str());
    return text;
  }

  static std::string line(const std::string& path, const State& state) {
    const MTF::Job_Entry& entry = state.entry;
    const std::string jobs = ranges_text(state.jobs);
    std::string text = columns(jobs.size() > 60 ? jobs.substr(0, 57) + "..." : jobs,
                               is_file(entry) ? std::to_string(entry.seq) : "-", state.kind,
                               bytes_text(entry), entry.dated ? date_text(entry.mtime) : "-");
    return text + escape_name(platform::display_path(path));
  }

  static std::string json(const std::string& path, const State& state) {
    json_spirit::Document document{{"path", platform::display_path(path)},
                                   {"type", state.kind},
                                   {"size", bytes_json(state.entry)},
                                   {"mtime", state.entry.mtime},
                                   {"jobs", state.jobs}};
    if (is_file(state.entry)) document["held_by"] = state.entry.seq;
    return json_text(document);
  }

  const Find_Options& options_;
  Console& console_;
  // By system path, in the order of a walk.
  std::map<std::string, std::vector<State>, decltype(&oxbase::path_less)> found_{oxbase::path_less};
  int code_ = exit_done;
};

int run_find(const Find_Options& options, Console& console) {
  Job_Choice choice;
  std::string error;
  if (!choice.open(options.job, error)) {
    console.note("error: " + error);
    return exit_failed;
  }
  Find_Options normal = options;
  for (std::string& pattern : normal.patterns) {
    if (pattern.find('/') == std::string::npos || absolute_pattern(pattern, pattern)) continue;
    console.note("error: the working directory is gone, so '" + escape_controls(pattern) +
                 "' can't be told");
    return exit_failed;
  }
  Finder finder(normal, console);
  for (const MTF::Job_Pieces& job : choice.jobs()) finder.look_at(choice.store(), job);
  return finder.report();
}

}  // namespace

void add_find(CLI::App& app, Command& chosen) {
  auto options = std::make_shared<Find_Options>();
  CLI::App* command = app.add_subcommand("find", "Show which jobs hold a name");
  command->footer(
      "One line for each state of an entry: the jobs that have it, the one whose media holds the\n"
      "bytes, type, bytes, date of the last change in UTC, native path. A PATTERN has *, ? and\n"
      "[...] as in a shell, where * takes slashes too. One without a slash stands for a name in "
      "any\n"
      "directory, one with a slash for a whole path; a relative one counts from the working\n"
      "directory, unless it begins with *.\n"
      "Exit codes: 0 done; 1 nothing was found, or something could not be read; 2 wrong use.");
  add_storage(*command, options->job.storage);
  add_name(*command, options->job.stem)->required();
  add_json(*command, options->job.json);
  command->add_option("PATTERN", options->patterns, "The names or paths to look for")
      ->required()
      ->check(CLI::Validator(
          [](const std::string& text) {
            return platform::is_glob(text) ? "" : "'" + text + "' is no pattern";
          },
          ""));
  command->callback([options, &chosen] {
    chosen = [options](Console& console) { return run_find(*options, console); };
  });
}

}  // namespace agent
