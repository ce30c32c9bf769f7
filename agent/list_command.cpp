#include <cstdio>
#include <memory>

#include "agent/commands.h"
#include "agent/exit_code.h"
#include "agent/job_choice.h"
#include "agent/job_events.h"
#include "agent/text.h"
#include "platform/native_path.h"
#include "services/text.h"

namespace agent {
namespace {

const char* type_text(unsigned int type) {
  switch (type) {
    case MTF::block_volb:
      return "volume";
    case MTF::block_dirb:
      return "dir";
    case MTF::block_file:
      return "file";
    case MTF::block_hlnk:
      return "hardlink";
    case MTF::block_slnk:
      return "symlink";
    case MTF::block_devb:
      return "device";
    default:
      return "other";
  }
}

std::string entry_line(const MTF::Job_Entry& entry) {
  char columns[80];
  std::snprintf(columns, sizeof columns, "%-8s %15llu  %-19s  ", type_text(entry.type), entry.size,
                entry.dated ? date_text(entry.mtime).c_str() : "-");
  return columns + escape_name(platform::display_path(entry.path));
}

std::string entry_json(const MTF::Job_Entry& entry) {
  return json_text({{"type", type_text(entry.type)},
                    {"path", platform::display_path(entry.path)},
                    {"size", entry.size},
                    {"mtime", entry.mtime},
                    {"seq", entry.seq},
                    {"channel", entry.channel},
                    {"address", entry.address}});
}

int run_list(const Job_Options& options, Console& console) {
  Job_Choice choice;
  std::string error;
  if (!choice.open(options, error)) {
    console.note("error: " + error);
    return exit_failed;
  }
  if (!choice.warning().empty()) console.note(choice.warning());
  const auto on_entry = [&](const MTF::Job_Entry& entry) {
    console.line(options.json ? entry_json(entry) : entry_line(entry));
  };
  const auto on_fault = [&](const MTF::Fault& fault) {
    console.note("error: " + fault_text(fault));
  };
  const auto list = options.from_media ? MTF::list_job_from_media : MTF::list_job;
  return list(choice.store(), choice.job(), on_entry, on_fault) ? exit_done : exit_failed;
}

}  // namespace

void add_list(CLI::App& app, Command& chosen) {
  auto options = std::make_shared<Job_Options>();
  CLI::App* command = app.add_subcommand("list", "Show what a job holds");
  command->footer(
      "One entry a line: type, bytes, date of the last change in UTC, native path. Control\n"
      "characters in names are shown as \\n, \\t or \\xNN, and a backslash as \\\\.\n"
      "Exit codes: 0 done; 1 something could not be read; 2 wrong use.");
  add_storage(*command, options->storage);
  add_name(*command, options->stem)->required();
  add_seq(*command, options->seq, "The job; the newest complete one where it is left out");
  command->add_flag("--from-media", options->from_media,
                    "Read each media alone, also a damaged one; no catalog is needed");
  command->add_flag("--json", options->json, "Print JSON, one object a line");
  command->callback([options, &chosen] {
    chosen = [options](Console& console) { return run_list(*options, console); };
  });
}

}  // namespace agent
