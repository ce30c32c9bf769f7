#include <algorithm>
#include <atomic>
#include <memory>
#include <set>
#include <vector>

#include "agent/commands.h"
#include "agent/exit_code.h"
#include "agent/job_copier.h"
#include "agent/job_facts.h"
#include "agent/progress.h"
#include "agent/stem.h"
#include "agent/storage.h"
#include "agent/text.h"
#include "platform/host.h"
#include "platform/signals.h"

namespace agent {
namespace {

struct Copy_Options {
  Job_Options job;
  std::string to;
  std::vector<unsigned int> seqs;  // all where it is empty
  bool no_lock = false;
  bool quiet = false;
};

std::atomic<bool> copy_stop_asked{false};

bool is_one_storage(const IStorage& from, const std::string& to) {
  std::string error, first, second;
  const std::unique_ptr<IStorage> other = make_storage(to, error);
  return other->open_for_reading(error) && other->identity(first, error) &&
         from.identity(second, error) && first == second;
}

void note_cleared(const IStorage& storage, Console& console) {
  if (!storage.cleared().empty()) console.note(cleared_text(storage.cleared()));
}

class Copy {
 public:
  Copy(IStorage& from, IStorage& to, const Copy_Options& options, Console& console)
      : from_(from), to_(to), options_(options), console_(console), copier_(from, to, [] {
          return !copy_stop_asked.load();
        }) {}

  int run() {
    std::string error;
    // Nothing is made or locked for jobs that aren't there.
    if (!choose(error) || !open_target(error) || !copier_.open(options_.job.stem, error)) {
      console_.note("error: " + error);
      return exit_failed;
    }
    for (const unsigned int seq : chosen_) total_ += copier_.missing_bytes(seq);
    const Status_Line status(console_, [this](double seconds) { return progress(seconds); });
    for (const unsigned int seq : chosen_) {
      if (!copy(facts_of_seq(seq))) break;
    }
    console_.line("copied " + count_text(copied_, "job") + " of '" + options_.job.stem + "', " +
                  size_text(copier_.copied_bytes()) + "; " + std::to_string(there_) +
                  (there_ == 1 ? " was" : " were") + " there already");
    return bad_.empty() ? exit_done : exit_failed;
  }

 private:
  std::string title(unsigned int seq) const {
    return "job " + std::to_string(seq) + " of '" + options_.job.stem + "'";
  }

  std::string progress(double seconds) const {
    if (options_.quiet) return {};
    const unsigned long long bytes = copier_.copied_bytes();
    return "job " + std::to_string(seq_) + ": " + size_text(bytes) + " of " + size_text(total_) +
           " copied" + rate_text(bytes, seconds);
  }

  const Job_Facts& facts_of_seq(unsigned int seq) const {
    return *std::find_if(jobs_.begin(), jobs_.end(),
                         [&](const Job_Facts& job) { return job.seq == seq; });
  }

  bool has(unsigned int seq) const {
    return std::any_of(jobs_.begin(), jobs_.end(),
                       [&](const Job_Facts& job) { return job.seq == seq && job.complete; });
  }

  // The jobs that are to be there in the end.
  bool choose(std::string& error) {
    std::vector<MTF::Job_Pieces> found;
    if (!MTF::find_jobs(from_, options_.job.stem, found, error)) return false;
    for (const unsigned int seq : options_.seqs) {
      const bool there = std::any_of(found.begin(), found.end(), [&](const MTF::Job_Pieces& job) {
        return job.seq == seq && job.complete;
      });
      if (there) continue;
      error = "there is no complete " + title(seq);
      return false;
    }
    for (const MTF::Job_Pieces& job : found) jobs_.push_back(facts_of(from_, job));
    chosen_.insert(options_.seqs.begin(), options_.seqs.end());
    for (auto job = jobs_.rbegin(); job != jobs_.rend(); ++job) choose(*job);
    if (!chosen_.empty()) return true;
    error = "there is no complete job of '" + options_.job.stem + "'";
    return false;
  }

  bool open_target(std::string& error) {
    if (is_one_storage(from_, options_.to)) {
      error = "--to is the storage that the jobs are on";
      return false;
    }
    const bool opened = to_.open_for_job(options_.job.stem, true, error);
    note_cleared(to_, console_);
    return opened;
  }

  // The newest comes first, so that all that need a job have been met before it.
  void choose(const Job_Facts& job) {
    const bool all = options_.seqs.empty();
    if (!job.complete && all) {
      console_.note("warning: " + title(job.seq) + " is not complete, and isn't copied");
    }
    if (!job.complete || (!all && chosen_.count(job.seq) == 0)) return;
    chosen_.insert(job.seq);
    for (const unsigned int seq : needs_of(job, jobs_)) {
      if (has(seq)) chosen_.insert(seq);
    }
  }

  // False if the copying is to stop here.
  bool copy(const Job_Facts& job) {
    std::string error;
    seq_ = job.seq;
    for (const unsigned int seq : needs_of(job, jobs_)) {
      if (has(seq) && bad_.count(seq) == 0) continue;
      return refuse(job.seq, "it needs job " + std::to_string(seq) +
                                 (has(seq) ? ", which isn't copied" : ", which isn't complete"));
    }
    switch (copier_.copy(job.seq, error)) {
      case Job_Copier::Outcome::copied:
        ++copied_;
        console_.line_now("copied " + title(job.seq));
        return true;
      case Job_Copier::Outcome::there:
        ++there_;
        return true;
      case Job_Copier::Outcome::refused:
        return refuse(job.seq, error);
      case Job_Copier::Outcome::failed:
        break;
    }
    refuse(job.seq, error);
    return false;
  }

  bool refuse(unsigned int seq, const std::string& why) {
    bad_.insert(seq);
    console_.note("error: " + title(seq) + " isn't copied: " + why);
    return true;
  }

  IStorage& from_;
  IStorage& to_;
  const Copy_Options& options_;
  Console& console_;
  Job_Copier copier_;
  std::vector<Job_Facts> jobs_;  // of the source, in rising order
  std::set<unsigned int> chosen_, bad_;
  std::atomic<unsigned int> seq_{0};  // of the job that is being copied
  unsigned long long total_ = 0;
  unsigned long long copied_ = 0;  // jobs, like the next
  unsigned long long there_ = 0;
};

int run_copy(const Copy_Options& options, Console& console) {
  std::string error;
  const std::unique_ptr<IStorage> from = make_storage(options.job.storage, error);
  const std::unique_ptr<IStorage> to = from ? make_storage(options.to, error) : nullptr;
  if (!to) {
    console.note("mtf-agent: " + error);
    return exit_usage;
  }
  const platform::Private_Files private_files;
  copy_stop_asked = false;
  platform::watch_stop_signals([](int) { copy_stop_asked = true; });
  const bool opened = options.no_lock ? from->open_for_reading(error)
                                      : from->open_for_job(options.job.stem, false, error);
  note_cleared(*from, console);
  if (opened) return Copy(*from, *to, options, console).run();
  console.note("error: " + error);
  return exit_failed;
}

}  // namespace

void add_copy(CLI::App& app, Command& chosen) {
  auto options = std::make_shared<Copy_Options>();
  CLI::App* command = app.add_subcommand("copy", "Copy jobs to another storage");
  command->footer(
      "Copies the jobs named by their numbers with all that they need, or all that are complete.\n"
      "The copies keep their name and numbers. Each piece is read back from the other storage and\n"
      "compared with what was read here, by a 128-bit hash; it gets its name behind that, and the\n"
      "catalogs theirs last: a copy that fails or is killed leaves no job. The bytes are copied "
      "as\n"
      "they are: 'verify' tells whether they were sound in the first place.\n"
      "A job that is there already is passed over if its pieces have the same sizes and its\n"
      "catalogs the same bytes, and left alone with an error if not. One that lacks pieces there\n"
      "gets them if the others are the same.\n"
      "Both storages are locked for the name. Ctrl-C ends a copy in order.\n"
      "Exit codes: 0 done; 1 a job could not be copied; 2 wrong use.");
  add_storage(*command, options->job.storage);
  command->add_option("--to", options->to, "The storage that the jobs come to; made if missing")
      ->required()
      ->type_name("STORAGE");
  add_name(*command, options->job.stem)->required();
  command->add_option("SEQ", options->seqs, "Numbers of jobs; all where none is given")
      ->check(number_range(1U, last_seq))
      ->type_name("N");
  command->add_flag("--no-lock", options->no_lock,
                    "Don't lock the storage that is copied from, such as one that can't be "
                    "written to");
  add_quiet(*command, options->quiet);
  command->callback([options, &chosen] {
    chosen = [options](Console& console) { return run_copy(*options, console); };
  });
}

}  // namespace agent
