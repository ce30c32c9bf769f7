#include <algorithm>
#include <cstdio>
#include <ctime>
#include <memory>
#include <vector>

#include "agent/commands.h"
#include "agent/exit_code.h"
#include "agent/json_text.h"
#include "agent/keep_rule.h"
#include "agent/storage.h"
#include "agent/text.h"
#include "platform/host.h"

namespace agent {
namespace {

struct Prune_Options {
  Job_Options job;
  Keep_Rule rule;
  bool dry_run = false;
};

constexpr struct {
  const char* option;
  unsigned int Keep_Rule::*count;
  const char* help;
} rules[] = {
    {"--keep-last", &Keep_Rule::last, "Keep the newest N jobs"},
    {"--keep-daily", &Keep_Rule::daily, "Keep the newest job of each of the last N days with one"},
    {"--keep-weekly", &Keep_Rule::weekly, "The same of weeks, from Monday on"},
    {"--keep-monthly", &Keep_Rule::monthly, "The same of months"},
    {"--keep-yearly", &Keep_Rule::yearly, "The same of years"}};

// "2026-11-23 09:15" in the local time, which the rules go by.
std::string local_time_text(long long seconds_since_1970) {
  const std::time_t time = seconds_since_1970;
  std::tm parts;
  char text[40];
  if (time == 0 || localtime_r(&time, &parts) == nullptr) return "-";
  return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", &parts));
}

std::string table_line(const std::string& seq, const std::string& when, const std::string& size,
                       const char* what, const std::string& why) {
  char line[120];
  std::snprintf(line, sizeof line, "%6s  %-17s  %10s  %-6s", seq.c_str(), when.c_str(),
                size.c_str(), what);
  return why.empty() ? line : line + ("  " + why);
}

class Pruner {
 public:
  Pruner(IStorage& storage, const Prune_Options& options, Console& console)
      : storage_(storage), options_(options), console_(console) {}

  int run() {
    std::string error;
    if (!find(error)) return fail(error);
    show();
    const bool done = options_.dry_run || remove(error);
    close();
    return done ? exit_done : fail(error);
  }

 private:
  int fail(const std::string& error) {
    console_.note("error: " + error);
    return exit_failed;
  }

  bool find(std::string& error) {
    const std::string& stem = options_.job.stem;
    std::vector<MTF::Job_Pieces> found;
    if (!find_sizes(storage_, sizes_, error) || !MTF::find_jobs(storage_, stem, found, error)) {
      return false;
    }
    for (const MTF::Job_Pieces& job : found) jobs_.push_back(facts_of(storage_, job));
    kept_ = find_kept(options_.rule, jobs_);
    if (found.empty()) error = "there is no job of '" + stem + "'";
    return !found.empty();
  }

  bool stays(const Job_Facts& job) const { return kept_.count(job.seq) != 0; }

  unsigned long long size_of(const Job_Facts& job) const {
    const auto found = sizes_.find({options_.job.stem, job.seq});
    return found == sizes_.end() ? 0 : found->second;
  }

  void show() const {
    if (!options_.job.json) {
      console_.line(table_line("SEQ", "WHEN (LOCAL TIME)", "STORED", "", "WHY"));
    }
    for (const Job_Facts& job : jobs_) {
      const auto found = kept_.find(job.seq);
      const Keep_Reason reason = found == kept_.end() ? Keep_Reason() : found->second;
      console_.line(options_.job.json
                        ? json_text({{"name", options_.job.stem},
                                     {"seq", job.seq},
                                     {"time", job.time},
                                     {"size", size_of(job)},
                                     {"keep", stays(job)},
                                     {"rules", reason.rules},
                                     {"needed_by", reason.needed_by}})
                        : table_line(std::to_string(job.seq), local_time_text(job.time),
                                     size_text(size_of(job)), stays(job) ? "keep" : "remove",
                                     reason_text(reason)));
    }
  }

  // The newest first: whatever ends it, no job that is left lacks one.
  bool remove(std::string& error) {
    for (auto job = jobs_.rbegin(); job != jobs_.rend(); ++job) {
      if (stays(*job)) continue;
      if (!remove_job(storage_, options_.job.stem, job->seq, error)) return false;
      ++removed_;
      freed_ += size_of(*job);
    }
    return true;
  }

  void close() {
    for (const Job_Facts& job : jobs_) {
      if (!options_.dry_run || stays(job)) continue;
      ++removed_;
      freed_ += size_of(job);
    }
    if (options_.job.json) {
      const json_spirit::Document sums{{"kept", jobs_.size() - removed_},
                                       {"removed", removed_},
                                       {"bytes", freed_},
                                       {"dry_run", options_.dry_run}};
      return console_.line("{\"summary\":" + json_text(sums) + '}');
    }
    console_.line((options_.dry_run ? "would remove " : "removed ") + count_text(removed_, "job") +
                  " of '" + options_.job.stem + "', " + size_text(freed_) + "; " +
                  std::to_string(jobs_.size() - removed_) + " kept");
  }

  IStorage& storage_;
  const Prune_Options& options_;
  Console& console_;
  Job_Sizes sizes_;
  std::vector<Job_Facts> jobs_;  // in rising order
  std::map<unsigned int, Keep_Reason> kept_;
  unsigned long long removed_ = 0;
  unsigned long long freed_ = 0;
};

int run_prune(const Prune_Options& options, Console& console) {
  std::string error;
  if (is_empty(options.rule)) {
    console.note(
        "mtf-agent: nothing says what to keep: give --keep-last, --keep-daily, "
        "--keep-weekly, --keep-monthly or --keep-yearly");
    return exit_usage;
  }
  const std::unique_ptr<IStorage> storage = make_storage(options.job.storage, error);
  if (!storage) {
    console.note("mtf-agent: " + error);
    return exit_usage;
  }
  const platform::Private_Files private_files;
  const bool opened = options.dry_run ? storage->open_for_reading(error)
                                      : storage->open_for_job(options.job.stem, false, error);
  if (!storage->cleared().empty()) console.note(cleared_text(storage->cleared()));
  if (opened) return Pruner(*storage, options, console).run();
  console.note("error: " + error);
  return exit_failed;
}

}  // namespace

void add_prune(CLI::App& app, Command& chosen) {
  auto options = std::make_shared<Prune_Options>();
  CLI::App* command = app.add_subcommand("prune", "Delete old jobs by a rule");
  command->footer(
      "Each rule counts for itself, and a job that one of them keeps stays: of the newest N\n"
      "days, weeks, months or years in which there is a complete job the newest job of each. Days\n"
      "begin at midnight of the local time (TZ).\n"
      "With a job stay those that hold files of it, and what these need; so a chain of\n"
      "incremental jobs goes as fast as nothing points at its jobs any more, and all of it once a\n"
      "newer full job is old enough. A job that another one started from, but that holds no file\n"
      "of it, isn't needed; 'rebuild' can't make the catalogs of the other again without it. A\n"
      "job that isn't complete stays, and what it may need: 'rebuild' may make it whole, and\n"
      "'remove' deletes it. Without a rule nothing is deleted.\n"
      "Exit codes: 0 done; 1 failed; 2 wrong use, such as no rule.");
  add_storage(*command, options->job.storage);
  add_name(*command, options->job.stem)->required();
  for (const auto& rule : rules) {
    command->add_option(rule.option, options->rule.*rule.count, rule.help)
        ->check(number_range(1U, 1000000U))
        ->type_name("N");
  }
  command->add_flag("--dry-run", options->dry_run, "Show what would go, and delete nothing");
  add_json(*command, options->job.json);
  command->callback([options, &chosen] {
    chosen = [options](Console& console) { return run_prune(*options, console); };
  });
}

}  // namespace agent
