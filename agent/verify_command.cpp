#include <cstdio>
#include <memory>

#include "agent/commands.h"
#include "agent/exit_code.h"
#include "agent/job_choice.h"
#include "agent/read_progress.h"
#include "agent/text.h"

namespace agent {
namespace {

struct Verify_Options {
  Job_Options job;
  bool all = false;
  bool quiet = false;
};

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

std::string table_line(const std::string& seq, const std::string& faults,
                       const std::string& corrupt, const std::string& size,
                       const std::string& state) {
  char line[120];
  std::snprintf(line, sizeof line, "%8s %8s %8s %12s  %s", seq.c_str(), faults.c_str(),
                corrupt.c_str(), size.c_str(), state.c_str());
  return line;
}

class Verifier {
 public:
  Verifier(Job_Choice& choice, const Verify_Options& options, Console& console)
      : choice_(choice),
        options_(options),
        console_(console),
        progress_(choice.store(), console, !options.quiet) {}

  int run() {
    if (options_.all) return verify_all();
    if (!choice_.warning().empty()) console_.note(choice_.warning());
    const MTF::Verify_Summary summary = verify(choice_.job());
    console_.line(closing_line(choice_.title(), summary));
    return summary.faults == 0 && choice_.job().complete ? exit_done : exit_failed;
  }

 private:
  MTF::Verify_Summary verify(const MTF::Job_Pieces& job) {
    progress_.begin(job.seq);
    return MTF::verify_job(progress_.store(), job,
                           [&](const MTF::Fault& fault) { console_.line(fault_text(fault)); });
  }

  // Prints the faults as they are found, and then the table.
  int verify_all() {
    std::vector<std::string> table{table_line("SEQ", "FAULTS", "CORRUPT", "SIZE", "STATE")};
    unsigned long long bad = 0;
    for (const MTF::Job_Pieces& job : choice_.jobs()) {
      const std::string seq = std::to_string(job.seq);
      if (!job.complete) {
        table.push_back(table_line(seq, "-", "-", "-", "incomplete"));
        ++bad;
        continue;
      }
      const MTF::Verify_Summary summary = verify(job);
      table.push_back(table_line(seq, std::to_string(summary.faults),
                                 std::to_string(summary.corrupt_files), size_text(summary.bytes),
                                 summary.faults == 0 ? "sound" : "damaged"));
      if (summary.faults != 0) ++bad;
    }
    for (const std::string& line : table) console_.line(line);
    console_.line(count_text(choice_.jobs().size(), "job") + " of '" + options_.job.stem + "', " +
                  (bad == 0 ? "all sound" : std::to_string(bad) + " not sound"));
    return bad == 0 ? exit_done : exit_failed;
  }

  Job_Choice& choice_;
  const Verify_Options& options_;
  Console& console_;
  Read_Progress progress_;
};

int run_verify(const Verify_Options& options, Console& console) {
  Job_Choice choice;
  std::string error;
  if (choice.open(options.job, error)) return Verifier(choice, options, console).run();
  console.note("error: " + error);
  return exit_failed;
}

}  // namespace

void add_verify(CLI::App& app, Command& chosen) {
  auto options = std::make_shared<Verify_Options>();
  CLI::App* command = app.add_subcommand("verify", "Read a job back and check all of it");
  command->footer(
      "One fault a line, as PIECE:POSITION: what is wrong there; the position is in bytes.\n"
      "With --all a table closes the output, with a line for each job: its faults, the files that\n"
      "went bad while the job read them, the bytes of its pieces, and whether it is sound. One\n"
      "that lacks a piece isn't. Each media is read once: of what a job takes from the media of\n"
      "an earlier one, the blocks that its catalog points at are looked at again.\n"
      "What no checksum covers and nothing repeats can't be checked: the owners and modes of a\n"
      "plain job above all.\n"
      "Exit codes: 0 no fault; 1 faults, or a job is incomplete or can't be read; 2 wrong use.");
  add_storage(*command, options->job.storage);
  add_name(*command, options->job.stem)->required();
  CLI::Option* seq =
      add_seq(*command, options->job.seq, "The job; the newest complete one where it is left out");
  command->add_flag("--all", options->all, "Check every job of the name")->excludes(seq);
  add_quiet(*command, options->quiet);
  command->callback([options, &chosen] {
    chosen = [options](Console& console) { return run_verify(*options, console); };
  });
}

}  // namespace agent
