#include <cstdio>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "agent/commands.h"
#include "agent/exit_code.h"
#include "agent/job_events.h"
#include "agent/stem.h"
#include "agent/storage.h"
#include "agent/text.h"
#include "mtf/reader/jobs.h"
#include "services/piece_name.h"

namespace agent {
namespace {

std::string table_line(const char* name, const std::string& seq, const std::string& channels,
                       const std::string& size, const char* state) {
  char line[longest_stem + 80];
  std::snprintf(line, sizeof line, "%-20s %10s %8s %12s  %s", name, seq.c_str(), channels.c_str(),
                size.c_str(), state);
  return line;
}

void show(const MTF::Job_Pieces& job, unsigned long long size, bool json, Console& console) {
  if (json) {
    console.line(json_text({{"name", job.stem},
                            {"seq", job.seq},
                            {"channels", job.channels.size()},
                            {"size", size},
                            {"complete", job.complete}}));
    return;
  }
  console.line(table_line(job.stem.c_str(), std::to_string(job.seq),
                          std::to_string(job.channels.size()), size_text(size),
                          job.complete ? "complete" : "incomplete"));
}

// Bytes of all pieces of each job.
using Sizes = std::map<std::pair<std::string, unsigned int>, unsigned long long>;

bool find_sizes(IStorage& storage, Sizes& sizes, std::string& error) {
  std::vector<Stored_Piece> pieces;
  if (!storage.list(pieces, error)) return false;
  for (const Stored_Piece& each : pieces) {
    MTF::Piece_Name piece;
    if (MTF::parse_piece_name(each.name, piece)) sizes[{piece.stem, piece.seq}] += each.size;
  }
  return true;
}

int run_jobs(const Job_Options& options, Console& console) {
  std::string error;
  std::vector<MTF::Job_Pieces> jobs;
  Sizes sizes;
  const std::unique_ptr<IStorage> storage = make_storage(options.storage, error);
  if (!storage) {
    console.note("mtf-agent: " + error);
    return exit_usage;
  }
  if (!storage->open_for_reading(error) || !find_sizes(*storage, sizes, error) ||
      !MTF::find_jobs(*storage, options.stem, jobs, error)) {
    console.note("error: " + error);
    return exit_failed;
  }
  if (!options.json) console.line(table_line("NAME", "SEQ", "CHANNELS", "SIZE", "STATE"));
  for (const MTF::Job_Pieces& job : jobs) {
    show(job, sizes[{job.stem, job.seq}], options.json, console);
  }
  return exit_done;
}

}  // namespace

void add_jobs(CLI::App& app, Command& chosen) {
  auto options = std::make_shared<Job_Options>();
  CLI::App* command = app.add_subcommand("jobs", "Show the jobs of a storage");
  command->footer(
      "A job that lacks a piece is incomplete: it was killed while its pieces got their names, or\n"
      "has lost one since. A job that is running has no pieces yet.\n"
      "Exit codes: 0 done; 1 failed; 2 wrong use.");
  add_storage(*command, options->storage);
  add_name(*command, options->stem);
  command->add_flag("--json", options->json, "Print JSON, one object a line");
  command->callback([options, &chosen] {
    chosen = [options](Console& console) { return run_jobs(*options, console); };
  });
}

}  // namespace agent
