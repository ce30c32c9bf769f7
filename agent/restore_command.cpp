#include <memory>

#include "agent/commands.h"
#include "agent/exit_code.h"
#include "agent/job_choice.h"
#include "agent/paths.h"
#include "agent/text.h"

namespace agent {
namespace {

bool resolve(const Restore_Command_Options& options, MTF::Restore_Options& out,
             std::string& error) {
  out.from_media = options.job.from_media;
  if (options.to.empty() && !options.pre_action.empty() && options.paths.empty()) return true;
  if (options.to.empty()) {
    error = "--to is required";
    return false;
  }
  if (!absolute_path(options.to, out.to)) {
    error = "--to '" + options.to + "' is no path";
    return false;
  }
  for (const std::string& path : options.paths) {
    std::string full;
    if (!absolute_path(path, full)) {
      error = "'" + path + "' is no path";
      return false;
    }
    out.paths.push_back(full);
  }
  return true;
}

// Writes the pre-action data where it is asked for. False where that failed.
bool restore_pre_action(const Restore_Command_Options& options, Job_Choice& choice,
                        const MTF::Fault_Sink& on_fault, Console& console) {
  if (options.pre_action.empty()) return true;
  unsigned long long bytes = 0;
  std::string why;
  if (!MTF::restore_pre_action(choice.store(), choice.job(), options.pre_action, bytes, on_fault,
                               why, options.job.from_media)) {
    console.note("error: pre-action data can't be written to " + escape_name(options.pre_action) +
                 ": " + escape_controls(why));
    return false;
  }
  console.line("restored " + size_text(bytes) + " of pre-action data");
  return true;
}

int report(const MTF::Restore_Summary& summary, unsigned long long faults, Console& console) {
  for (const std::string& path : summary.not_found) {
    console.note("error: the job doesn't hold " + escape_controls(path));
  }
  std::string line = "restored " + count_text(summary.files, "file") + " and " +
                     directories_text(summary.directories) + ", " + size_text(summary.bytes);
  if (summary.failed != 0) line += "; " + std::to_string(summary.failed) + " failed";
  console.line(line);
  if (summary.without_owner != 0) {
    console.note("owner of " + std::to_string(summary.without_owner) +
                 (summary.without_owner == 1 ? " entry" : " entries") +
                 " not restored: " + summary.owner_fault);
  }
  return summary.failed == 0 && summary.not_found.empty() && faults == 0 ? exit_done : exit_failed;
}

int run_restore(const Restore_Command_Options& options, Console& console) {
  MTF::Restore_Options what;
  Job_Choice choice;
  std::string error;
  if (!resolve(options, what, error)) {
    console.note("mtf-agent: " + escape_controls(error));
    return exit_usage;
  }
  if (!choice.open(options.job, error)) {
    console.note("error: " + error);
    return exit_failed;
  }
  if (!choice.warning().empty()) console.note(choice.warning());
  unsigned long long faults = 0;
  const auto on_fault = [&](const MTF::Fault& fault) {
    ++faults;
    console.note("error: " + fault_text(fault));
  };
  bool whole = true;
  const auto on_problem = [&](const std::string& path, const std::string& why) {
    whole = false;
    console.note("not restored: " + escape_name(path) + ": " + escape_controls(why));
  };
  if (!restore_pre_action(options, choice, on_fault, console)) whole = false;
  if (what.to.empty()) return whole && faults == 0 ? exit_done : exit_failed;
  const MTF::Restore_Summary summary =
      MTF::restore_job(choice.store(), choice.job(), what, on_fault, on_problem);
  const int code = report(summary, faults, console);
  return whole ? code : exit_failed;
}

}  // namespace

void add_restore(CLI::App& app, Command& chosen) {
  auto options = std::make_shared<Restore_Command_Options>();
  CLI::App* command = app.add_subcommand("restore", "Bring back a job, or paths of it");
  command->footer(
      "Files and directories come back as DIR/their/whole/path, with all that the job holds and\n"
      "the user may set: content, holes, dates, mode, owner, ACLs, extended attributes. An\n"
      "owner that the user may not give is left out with setuid and setgid; a line at the end\n"
      "counts them. A DIR that is made is closed to other users. Nothing is written outside DIR.\n"
      "With --from-media all that is whole on the medias of the job comes back, and the rest is\n"
      "named as far as the media tells it. A file whose directory is lost comes below\n"
      "DIR/lost+found. What an incremental job didn't save anew is on the medias of earlier jobs.\n"
      "Exit codes: 0 done; 1 something could not be restored or isn't in the job; 2 wrong use.");
  add_storage(*command, options->job.storage);
  add_name(*command, options->job.stem)->required();
  add_seq(*command, options->job.seq, "The job; the newest complete one where it is left out");
  command->add_option("--to", options->to, "The directory to restore below; made if missing")
      ->type_name("DIR");
  command
      ->add_option("--pre-action", options->pre_action,
                   "Write the job's pre-action data to FILE; without --to, nothing else")
      ->type_name("FILE");
  command->add_flag("--from-media", options->job.from_media,
                    "Use the job's own medias alone, also damaged ones; no catalog is needed");
  command->add_option("PATH", options->paths, "What to restore with all below it; else everything");
  command->callback([options, &chosen] {
    chosen = [options](Console& console) { return run_restore(*options, console); };
  });
}

}  // namespace agent
