#include <memory>

#include "agent/commands.h"
#include "agent/exit_code.h"
#include "agent/job_choice.h"
#include "agent/text.h"

namespace agent {
namespace {

std::string closing_line(const std::string& title, const MTF::Verify_Summary& summary) {
  std::string line = title + ": " + count_text(summary.faults, "fault") + " in " +
                     count_text(summary.blocks, "block") + ", " +
                     count_text(summary.streams, "stream") + " and " +
                     std::to_string(summary.entries) + " catalog " +
                     (summary.entries == 1 ? "entry, " : "entries, ") + size_text(summary.bytes);
  if (summary.corrupt_files != 0) {
    line += "; " + count_text(summary.corrupt_files, "file") + " went bad while the job read " +
            (summary.corrupt_files == 1 ? "it" : "them");
  }
  return line;
}

int run_verify(const Job_Options& options, Console& console) {
  Job_Choice choice;
  std::string error;
  if (!choice.open(options, error)) {
    console.note("error: " + error);
    return exit_failed;
  }
  if (!choice.warning().empty()) console.note(choice.warning());
  const auto on_fault = [&](const MTF::Fault& fault) { console.line(fault_text(fault)); };
  const MTF::Verify_Summary summary = MTF::verify_job(choice.store(), choice.job(), on_fault);
  console.line(closing_line(choice.title(), summary));
  return summary.faults == 0 && choice.job().complete ? exit_done : exit_failed;
}

}  // namespace

void add_verify(CLI::App& app, Command& chosen) {
  auto options = std::make_shared<Job_Options>();
  CLI::App* command = app.add_subcommand("verify", "Read a job back and check all of it");
  command->footer(
      "One fault a line, as PIECE:POSITION: what is wrong there; the position is in bytes.\n"
      "What no checksum covers and nothing repeats can't be checked: the owners and modes of a\n"
      "plain job above all.\n"
      "Exit codes: 0 no fault; 1 faults, or the job can't be read; 2 wrong use.");
  add_storage(*command, options->storage);
  add_name(*command, options->stem)->required();
  add_seq(*command, options->seq, "The job; the newest complete one where it is left out");
  command->callback([options, &chosen] {
    chosen = [options](Console& console) { return run_verify(*options, console); };
  });
}

}  // namespace agent
