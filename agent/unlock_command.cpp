#include <memory>

#include "agent/commands.h"
#include "agent/exit_code.h"
#include "agent/storage.h"

namespace agent {
namespace {

int run_unlock(const Job_Options& options, Console& console) {
  std::string error;
  std::vector<std::string> lines;
  const std::unique_ptr<IStorage> storage = make_storage(options.storage, error);
  if (!storage) {
    console.note("mtf-agent: " + error);
    return exit_usage;
  }
  const bool done = storage->unlock(options.stem, lines, error);
  for (const std::string& line : lines) console.line(line);
  if (!done) {
    console.note("error: " + error);
    return exit_failed;
  }
  if (lines.empty()) console.line("no lock of '" + options.stem + "' was left");
  return exit_done;
}

}  // namespace

void add_unlock(CLI::App& app, Command& chosen) {
  auto options = std::make_shared<Job_Options>();
  CLI::App* command = app.add_subcommand("unlock", "Take away the lock that a dead job left");
  command->footer(
      "On a remote the lock of a name is an object that its job writes anew each minute, and\n"
      "removes at its end. Where the job's machine died it stays, and is taken over by the next\n"
      "job after ten minutes; this command takes it away after three. It is left if its process\n"
      "is alive on this machine, or if it was written in the last three minutes by the clock of\n"
      "the remote. What can't be seen from here: a job on another machine that is alive and\n"
      "reached the remote for the last time before that. Such a job looks for its lock at its\n"
      "end, and fails where it is gone. In a directory a lock goes with its job at once.\n"
      "Exit codes: 0 no lock is left; 1 one is held, or the storage failed; 2 wrong use.");
  add_storage(*command, options->storage);
  add_name(*command, options->stem)->required();
  command->callback([options, &chosen] {
    chosen = [options](Console& console) { return run_unlock(*options, console); };
  });
}

}  // namespace agent
