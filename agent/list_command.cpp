#include <cstdio>
#include <memory>

#include "agent/commands.h"
#include "agent/entry_text.h"
#include "agent/exit_code.h"
#include "agent/job_choice.h"
#include "agent/json_text.h"
#include "agent/paths.h"
#include "agent/text.h"
#include "mtf/reader/wanted_paths.h"
#include "platform/native_path.h"
#include "services/json_spirit.h"
#include "services/text.h"

namespace agent {
namespace {

constexpr unsigned int most_depth = 65535;

bool is_link(const MTF::Job_Entry& entry) {
  return entry.type == MTF::block_slnk || entry.type == MTF::block_hlnk;
}

// Behind the path of a link, whose `target` may be unknown.
std::string target_text(const MTF::Job_Entry& entry, const std::string& target) {
  if (!is_link(entry) || target.empty()) return "";
  return (entry.type == MTF::block_slnk ? " -> " : " link to ") + escape_name(target);
}

std::string entry_line(const MTF::Job_Entry& entry, const std::string& kind,
                       const std::string& target) {
  char columns[80];
  std::snprintf(columns, sizeof columns, "%-8s %15s  %-19s  ", kind.c_str(),
                bytes_text(entry).c_str(), entry.dated ? date_text(entry.mtime).c_str() : "-");
  return columns + escape_name(platform::display_path(entry.path)) + target_text(entry, target);
}

std::string entry_json(const MTF::Job_Entry& entry, const std::string& kind,
                       const std::string& target) {
  json_spirit::Document document = {{"type", kind},
                                    {"path", platform::display_path(entry.path)},
                                    {"size", bytes_json(entry)},
                                    {"mtime", entry.mtime},
                                    {"seq", entry.seq},
                                    {"channel", entry.channel},
                                    {"address", entry.address}};
  if (is_link(entry) && !target.empty()) {
    document[entry.type == MTF::block_slnk ? "target" : "first_name"] = target;
  }
  return json_text(document);
}

int run_list(const List_Options& command, Console& console) {
  const Job_Options& options = command.job;
  std::vector<std::string> paths;
  for (const std::string& path : command.paths) {
    paths.emplace_back();
    if (absolute_path(path, paths.back())) continue;
    console.note("mtf-agent: '" + escape_controls(path) + "' is no path");
    return exit_usage;
  }
  MTF::Wanted_Paths wanted(paths, command.depth);
  Job_Choice choice;
  std::string error;
  if (!choice.open(options, error)) {
    console.note("error: " + error);
    return exit_failed;
  }
  if (!choice.warning().empty()) console.note(choice.warning());
  MTF::Link_Targets targets(choice.store(), choice.job());
  bool whole = true;
  const auto on_entry = [&](const MTF::Job_Entry& entry) {
    if (!wanted.take(entry.path)) return;
    std::string target;
    if (is_link(entry) && !targets.find(entry, target, error)) {
      whole = false;
      console.note("error: what " + escape_name(platform::display_path(entry.path)) +
                   " leads to can't be read: " + escape_controls(error));
    }
    if (entry.type == MTF::block_hlnk) target = platform::display_path(target);
    const std::string kind = kind_text(entry, targets);
    console.line(options.json ? entry_json(entry, kind, target) : entry_line(entry, kind, target));
  };
  const auto on_fault = [&](const MTF::Fault& fault) {
    console.note("error: " + fault_text(fault));
  };
  const auto list = options.from_media ? MTF::list_job_from_media : MTF::list_job;
  const bool sound = list(choice.store(), choice.job(), on_entry, on_fault);
  for (const std::string& path : wanted.not_met()) {
    console.note("error: the job doesn't hold " + escape_controls(path));
  }
  return sound && whole && wanted.not_met().empty() ? exit_done : exit_failed;
}

}  // namespace

void add_list(CLI::App& app, Command& chosen) {
  auto options = std::make_shared<List_Options>();
  CLI::App* command = app.add_subcommand("list", "Show what a job holds");
  command->footer(
      "One entry a line: type, bytes, date of the last change in UTC, native path. Types are\n"
      "volume, dir, file, symlink, fifo, chardev, blockdev, and hardlink, which is a further name\n"
      "of a file. Control characters in names are shown as \\n, \\t or \\xNN, and a backslash as\n"
      "\\\\. Behind a symbolic link stands \" -> TARGET\", behind a further name \" link to "
      "FIRST\".\n"
      "The bytes of a further name are those of its file; - where only the medias are looked at.\n"
      "Exit codes: 0 done; 1 something could not be read; 2 wrong use.");
  add_storage(*command, options->job.storage);
  add_name(*command, options->job.stem)->required();
  add_seq(*command, options->job.seq, "The job; the newest complete one where it is left out");
  command->add_flag("--from-media", options->job.from_media,
                    "Read each media alone, also a damaged one; no catalog is needed");
  add_json(*command, options->job.json);
  command
      ->add_option("--depth", options->depth,
                   "List no more than N levels below each PATH, or below the volumes")
      ->check(number_range(0U, most_depth))
      ->type_name("N");
  command->add_option("PATH", options->paths, "What to list with all below it; else everything");
  command->callback([options, &chosen] {
    chosen = [options](Console& console) { return run_list(*options, console); };
  });
}

}  // namespace agent
