#include <algorithm>
#include <memory>

#include "agent/commands.h"
#include "agent/full_plan.h"
#include "agent/stem.h"
#include "platform/glob.h"
#include "platform/host.h"

namespace agent {
namespace {

constexpr unsigned int most_channels = 64;
constexpr int most_threads = 256;
constexpr unsigned int most_default_threads = 4;
constexpr int highest_level = 22;

std::string assignment_fault(const std::string& text) {
  std::string name, value;
  return split_assignment(text, name, value) ? "" : "'" + text + "' isn't of the form VOLUME=DIR";
}

std::string glob_fault(const std::string& text) {
  return platform::is_glob(text) ? "" : "'" + text + "' is empty or has a '[' without its ']'";
}

// One value for each time the option is given, so that a path behind it isn't taken by mistake.
CLI::Option* add_each(CLI::App& command, const char* option, std::vector<std::string>& values,
                      const char* type, const char* help) {
  return command.add_option(option, values, help)->allow_extra_args(false)->type_name(type);
}

void add_what(CLI::App& command, Full_Options& options) {
  add_each(command, "--source", options.sources, "PATH", "What to save; may be given again")
      ->required();
  add_storage(command, options.storage);
  add_name(command, options.stem)->required();
  add_each(command, "--exclude", options.excludes, "PATH",
           "Leave out this path with all below it; may be given again");
  add_each(command, "--exclude-glob", options.exclude_globs, "GLOB",
           "Leave out paths or names that match; may be given again")
      ->check(CLI::Validator(glob_fault, ""));
  command
      .add_option("--pre-action", options.pre_action,
                  "Save what FILE holds, such as a dump, with the job; '-' reads standard input")
      ->type_name("FILE");
  add_each(command, "--volume", options.volumes, "X:=DIR",
           "The directory that stands for the volume X:")
      ->check(CLI::Validator(assignment_fault, ""));
  add_each(command, "--shadow", options.shadows, "VOL=DIR",
           "Read the volume ('X:' or '/') from a snapshot of it in DIR")
      ->check(CLI::Validator(assignment_fault, ""));
}

void add_how(CLI::App& command, Full_Options& options) {
  command.add_option("--channels", options.channels, "Write N media at once")
      ->capture_default_str()
      ->check(number_range(1U, most_channels))
      ->type_name("N");
  // The writers keep one processor busy.
  options.threads =
      static_cast<int>(std::clamp(platform::processor_count() - 1, 1U, most_default_threads));
  command
      .add_option("--threads", options.threads,
                  "Scan with N threads; else one for each processor but one, at most 4")
      ->check(number_range(1, most_threads))
      ->type_name("N");
  command.add_flag("--plain", options.plain,
                   "Save content, mode, owner and dates of files alone: no extended attributes,\n"
                   "ACLs and holes, and of directories only the dates");
  command.add_flag("--no-careful", options.no_careful,
                   "Trust the dates of files: an incremental job looks neither at sizes nor for\n"
                   "changes within a second or with the date set back");
  command.add_flag("--no-links", options.no_links,
                   "Save files and directories alone: no symbolic links, further names of files,\n"
                   "FIFOs and devices");
  command.add_option("--compression", options.compression, "How to compress")
      ->capture_default_str()
      ->check(CLI::IsMember({"none", "lz4", "zstd"}).description(""))
      ->type_name("none|lz4|zstd");
  command.add_option("--level", options.level, "The level of the compression")
      ->capture_default_str()
      ->check(number_range(1, highest_level))
      ->type_name("N");
  command.add_option("--tmp", options.tmp, "The directory for working files")->type_name("DIR");
  add_json(command, options.json);
  command.add_flag("--quiet", options.quiet, "No progress and no summary");
  command.add_flag("--verbose", options.verbose,
                   "Name each entry that is left out; else ten of a kind, and how many more");
}

// The job that both commands carry out, with the options that both have.
CLI::App* add_job(CLI::App& app, const char* name, const char* help,
                  const std::shared_ptr<Full_Options>& options, Command& chosen) {
  CLI::App* command = app.add_subcommand(name, help);
  add_what(*command, *options);
  add_how(*command, *options);
  command->callback([options, command, &chosen] {
    if (command->count("--level") != 0 && options->compression == "none") {
      throw CLI::ValidationError("--level", "there is none without --compression lz4 or zstd");
    }
    chosen = [options](Console& console) { return run_full(*options, console); };
  });
  return command;
}

constexpr const char* common_footer =
    "Sockets are named and left out, with --no-links also symbolic links, further names of\n"
    "hard-linked files, FIFOs and devices. A link isn't followed. The job gets the next free\n"
    "sequence number of its name. Ctrl-C takes the job back.\n"
    "With --json each event of the job is a line {\"code\": N, \"document\": {...}}. N is\n"
    "16777220 for a task that was made (or couldn't be: \"result\" is false), 16777221 for one "
    "that\n"
    "was started, 16777222 for the figures of the job, 16777223 for a catalog, and 16777224 for\n"
    "a piece that can't be made, 16777225 for a piece that can't be written, 16777226 for an\n"
    "entry that was skipped, and 16777227 for a file that went bad while it was read. The last\n"
    "line is {\"summary\": {...}}, whatever came before.\n"
    "Exit codes: 0 done, also if such were left out; 1 failed or cancelled, nothing is left of\n"
    "it, or, as a line then says, saved, but the output can't be written; 2 wrong use; 3 done,\n"
    "but other entries were skipped or went bad while they were read.";

}  // namespace

void add_full(CLI::App& app, Command& chosen) {
  auto options = std::make_shared<Full_Options>();
  add_job(app, "full", "Save directory trees as a new job", options, chosen)->footer(common_footer);
}

void add_incremental(CLI::App& app, Command& chosen) {
  auto options = std::make_shared<Full_Options>();
  options->incremental = true;
  CLI::App* command = add_job(
      app, "incremental", "Save what changed since an earlier job as a new job", options, chosen);
  command->footer(
      std::string(
          "A file counts as unchanged if its size and date are the same, and neither its content\n"
          "nor its owner, mode or attributes changed since the earlier job began. The job holds\n"
          "the whole tree: what didn't change is read from the jobs before it, so keep them. It\n"
          "must have as many channels as the job that it starts from.\n") +
      common_footer);
  command
      ->add_option("--base", options->base,
                   "The job to start from; the newest complete one where it is left out")
      ->check(number_range(1U, last_seq))
      ->type_name("SEQ");
}

}  // namespace agent
