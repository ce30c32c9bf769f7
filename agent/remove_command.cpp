#include <memory>
#include <vector>

#include "agent/commands.h"
#include "agent/exit_code.h"
#include "agent/storage.h"
#include "agent/text.h"
#include "mtf/reader/jobs.h"
#include "platform/host.h"

namespace agent {
namespace {

// False, with a line for the user, if a later job needs the one that is to go.
bool check_needed(IStorage& storage, const Remove_Options& options, std::string& error) {
  if (options.force) return true;
  MTF::Job_Pieces job;
  job.stem = options.job.stem;
  job.seq = options.job.seq;
  std::vector<unsigned int> seqs;
  if (!MTF::find_dependents(storage, job, seqs, error)) return false;
  if (seqs.empty()) return true;
  error = "job " + std::to_string(job.seq) + " of '" + job.stem + "' is needed by job";
  if (seqs.size() > 1) error += 's';
  for (std::size_t i = 0; i < seqs.size(); ++i) {
    error += (i == 0 ? " " : i + 1 == seqs.size() ? " and " : ", ") + std::to_string(seqs[i]);
  }
  error += ": --force removes it all the same";
  return false;
}

int run_remove(const Remove_Options& options, Console& console) {
  std::string error;
  const std::unique_ptr<IStorage> storage = make_storage(options.job.storage, error);
  const std::string& stem = options.job.stem;
  const unsigned int seq = options.job.seq;
  if (!storage) {
    console.note("mtf-agent: " + error);
    return exit_usage;
  }
  const platform::Private_Files private_files;
  const bool opened = storage->open_for_job(stem, false, error);
  if (!storage->cleared().empty()) console.note(cleared_text(storage->cleared()));
  if (!opened || !check_needed(*storage, options, error) ||
      !remove_job(*storage, stem, seq, error)) {
    console.note("error: " + error);
    return exit_failed;
  }
  console.line("removed job " + std::to_string(seq) + " of '" + stem + "'");
  return exit_done;
}

}  // namespace

void add_remove(CLI::App& app, Command& chosen) {
  auto options = std::make_shared<Remove_Options>();
  CLI::App* command = app.add_subcommand("remove", "Delete a job from the storage");
  command->footer(
      "A job that a later one took files from, or started from, is kept.\n"
      "Exit codes: 0 done; 1 failed, a later job needs it, or there is no such job; 2 wrong use.");
  add_storage(*command, options->job.storage);
  add_name(*command, options->job.stem)->required();
  add_seq(*command, options->job.seq, "The job")->required();
  command->add_flag("--force", options->force, "Delete it even if a later job needs it");
  command->callback([options, &chosen] {
    chosen = [options](Console& console) { return run_remove(*options, console); };
  });
}

}  // namespace agent
