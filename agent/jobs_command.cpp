#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "agent/commands.h"
#include "agent/exit_code.h"
#include "agent/job_facts.h"
#include "agent/json_text.h"
#include "agent/stem.h"
#include "agent/storage.h"
#include "agent/text.h"

namespace agent {
namespace {

struct Jobs_Options {
  Job_Options job;
  bool quick = false;
};

// A job as a line shows it.
struct Shown_Job {
  MTF::Job_Pieces pieces;
  unsigned long long size = 0;
  Job_Facts facts;  // but for those of the pieces none, if they weren't read
  std::vector<unsigned int> needed_by;
  std::vector<unsigned int> lost;  // what it needs and isn't there
};

std::string table_line(std::size_t width, const std::string& name, const std::string& seq,
                       const std::string& when, const std::string& kind, const std::string& files,
                       const std::string& content, const std::string& channels,
                       const std::string& size, const std::string& state,
                       const std::string& needed_by) {
  char line[2 * longest_stem + 200];
  std::snprintf(line, sizeof line, "%-*s %5s  %-16s  %-10s %11s %10s %8s %10s  %-10s  ",
                static_cast<int>(width), name.c_str(), seq.c_str(), when.c_str(), kind.c_str(),
                files.c_str(), content.c_str(), channels.c_str(), size.c_str(), state.c_str());
  return line + needed_by;
}

std::string state_of(const Shown_Job& job, bool quick) {
  if (!job.pieces.complete) return "incomplete";
  if (quick) return "complete";
  if (!job.facts.sound) return "damaged";
  return job.lost.empty() ? "complete" : "lacks " + ranges_text(job.lost);
}

class Jobs_Shower {
 public:
  Jobs_Shower(const Jobs_Options& options, Console& console)
      : options_(options), console_(console) {}

  int run(IStorage& storage) {
    std::string error;
    if (!storage.open_for_reading(error) || !find(storage, error)) {
      console_.note("error: " + error);
      return exit_failed;
    }
    if (jobs_.empty() && !options_.job.stem.empty()) {
      console_.note("error: there is no job of '" + options_.job.stem + "'");
      return exit_failed;
    }
    for (const Shown_Job& job : jobs_) width_ = std::max(width_, job.pieces.stem.size());
    if (!options_.job.json) {
      console_.line(table_line(width_, "NAME", "SEQ", "WHEN (UTC)", "KIND", "FILES", "CONTENT",
                               "CHANNELS", "STORED", "STATE", "NEEDED BY"));
    }
    for (const Shown_Job& job : jobs_) {
      console_.line(options_.job.json ? json_line(job) : text_line(job));
    }
    return exit_done;
  }

 private:
  bool find(IStorage& storage, std::string& error) {
    std::vector<MTF::Job_Pieces> found;
    Job_Sizes sizes;
    if (!find_sizes(storage, sizes, error) ||
        !MTF::find_jobs(storage, options_.job.stem, found, error)) {
      return false;
    }
    for (MTF::Job_Pieces& pieces : found) {
      jobs_.emplace_back();
      jobs_.back().size = sizes[{pieces.stem, pieces.seq}];
      if (!options_.quick) jobs_.back().facts = facts_of(storage, pieces);
      jobs_.back().pieces = std::move(pieces);
    }
    if (options_.quick) return true;
    for (auto first = jobs_.begin(); first != jobs_.end();) {
      const auto last = std::find_if(first, jobs_.end(), [&](const Shown_Job& job) {
        return job.pieces.stem != first->pieces.stem;
      });
      tie(first, last);
      first = last;
    }
    return true;
  }

  // Joins the jobs of one name, which come in rising order.
  template <class Iterator>
  static void tie(Iterator first, Iterator last) {
    std::vector<Job_Facts> chain;
    std::map<unsigned int, Shown_Job*> by_seq;
    for (auto job = first; job != last; ++job) {
      chain.push_back(job->facts);
      by_seq[job->pieces.seq] = &*job;
    }
    for (auto job = first; job != last; ++job) {
      for (const unsigned int seq : needs_of(job->facts, chain)) {
        const auto needed = by_seq.find(seq);
        if (needed == by_seq.end() || !needed->second->pieces.complete) job->lost.push_back(seq);
        if (needed != by_seq.end()) needed->second->needed_by.push_back(job->pieces.seq);
      }
    }
  }

  std::string text_line(const Shown_Job& job) const {
    const bool quick = options_.quick;
    const Job_Facts& facts = job.facts;
    return table_line(
        width_, job.pieces.stem, std::to_string(job.pieces.seq),
        quick || facts.time == 0 ? "-" : minute_text(facts.time), quick ? "-" : kind_text(facts),
        quick ? "-" : grouped_text(facts.files), quick ? "-" : size_text(facts.bytes),
        std::to_string(job.pieces.channels.size()), size_text(job.size), state_of(job, quick),
        job.needed_by.empty() ? "-" : ranges_text(job.needed_by));
  }

  std::string json_line(const Shown_Job& job) const {
    json_spirit::Document document{{"name", job.pieces.stem},
                                   {"seq", job.pieces.seq},
                                   {"channels", job.pieces.channels.size()},
                                   {"size", job.size},
                                   {"complete", job.pieces.complete}};
    if (options_.quick) return json_text(document);
    const Job_Facts& facts = job.facts;
    document.update({{"time", facts.time},
                     {"incremental", facts.incremental},
                     {"base", facts.base},
                     {"files", facts.files},
                     {"bytes", facts.bytes},
                     {"saved_files", facts.saved_files},
                     {"saved_bytes", facts.saved_bytes},
                     {"sound", facts.sound},
                     {"needed_by", job.needed_by},
                     {"lacks", job.lost}});
    return json_text(document);
  }

  const Jobs_Options& options_;
  Console& console_;
  std::vector<Shown_Job> jobs_;
  std::size_t width_ = 4;
};

int run_jobs(const Jobs_Options& options, Console& console) {
  std::string error;
  const std::unique_ptr<IStorage> storage = make_storage(options.job.storage, error);
  if (storage) return Jobs_Shower(options, console).run(*storage);
  console.note("mtf-agent: " + error);
  return exit_usage;
}

}  // namespace

void add_jobs(CLI::App& app, Command& chosen) {
  auto options = std::make_shared<Jobs_Options>();
  CLI::App* command = app.add_subcommand("jobs", "Show the jobs of a storage");
  command->footer(
      "FILES and CONTENT are those of the whole tree that a job brings back, STORED what its own\n"
      "pieces take on the storage. NEEDED BY names the jobs of which files stand on its medias:\n"
      "without it they lack them. An incremental job that holds nothing of a job that it started\n"
      "from doesn't need it.\n"
      "A job that lacks a piece is incomplete: it was killed while its pieces got their names, or\n"
      "has lost one since. A job that is running has no pieces yet. One whose catalogs can't be\n"
      "read is damaged, and one that needs a job which isn't there or complete lacks that.\n"
      "Exit codes: 0 done; 1 failed, or there is no job of the name that was\n"
      "given; 2 wrong use.");
  add_storage(*command, options->job.storage);
  add_name(*command, options->job.stem);
  command->add_flag("--quick", options->quick, "Read no catalog, and show what names tell");
  add_json(*command, options->job.json);
  command->callback([options, &chosen] {
    chosen = [options](Console& console) { return run_jobs(*options, console); };
  });
}

}  // namespace agent
