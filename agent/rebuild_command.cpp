#include <algorithm>
#include <memory>
#include <vector>

#include "agent/commands.h"
#include "agent/exit_code.h"
#include "agent/job_choice.h"
#include "agent/read_progress.h"
#include "agent/storage.h"
#include "agent/storage_channel.h"
#include "agent/text.h"
#include "agent/work_directory.h"
#include "mtf/rescue/rebuild.h"
#include "mtf/writer/dblk_writer.h"
#include "platform/host.h"
#include "services/piece_name.h"

namespace agent {
namespace {

constexpr unsigned int physical_block = 4096;

std::string entries_text(unsigned long long count) {
  return std::to_string(count) + (count == 1 ? " entry" : " entries");
}

// "demo.3.0.cat: 20 entries of job 3, 100 of earlier jobs".
std::string made_text(const std::string& catalog, unsigned int seq,
                      const MTF::Rebuild_Summary& summary) {
  std::string text =
      catalog + ": " + entries_text(summary.saved) + " of job " + std::to_string(seq);
  if (summary.earlier != 0) text += ", " + std::to_string(summary.earlier) + " of earlier jobs";
  return text;
}

// True if there is anything of that name, whether or not it can be read.
bool has_piece(IStorage& storage, const std::string& name) {
  std::vector<std::string> names;
  std::string error;
  return storage.pieces(names, error) && std::find(names.begin(), names.end(), name) != names.end();
}

// Makes catalogs again on a storage that is locked for their name.
class Rebuilder {
 public:
  Rebuilder(IStorage& storage, const Rebuild_Options& options, Console& console)
      : storage_(storage),
        options_(options),
        console_(console),
        progress_(storage, console, !options.quiet) {}

  bool open(std::string& error) {
    if (!open_work_directory(storage_, options_.job.stem, options_.tmp, work_, error)) return false;
    return MTF::find_jobs(storage_, options_.job.stem, jobs_, error) && choose(error);
  }

  const std::vector<std::string>& cleared() const { return work_.cleared(); }

  int run() {
    for (const MTF::Job_Pieces& job : wanted_) {
      for (const unsigned long long channel : job.channels) look_at(job, channel);
    }
    if (made_ == 0 && code_ == exit_done) console_.line("no catalog is missing");
    return code_;
  }

 private:
  bool is_whole(const MTF::Job_Pieces& job);
  bool choose(std::string& error);
  void look_at(const MTF::Job_Pieces& job, unsigned long long channel);
  bool make(const MTF::Job_Pieces& job, unsigned long long channel, const std::string& catalog,
            bool replace);
  bool store(const std::string& local, const std::string& catalog, bool replace,
             std::string& error);
  void report(const std::string& catalog, unsigned int seq, const MTF::Rebuild_Summary& summary);

  void note(int code, const std::string& text) {
    if (code_ != exit_failed) code_ = code;
    console_.note(escape_controls(text));
  }

  IStorage& storage_;
  const Rebuild_Options& options_;
  Console& console_;
  Read_Progress progress_;
  Work_Directory work_;
  std::vector<MTF::Job_Pieces> jobs_;    // of the name, in rising order
  std::vector<MTF::Job_Pieces> wanted_;  // likewise
  int code_ = exit_done;
  unsigned int made_ = 0;
};

bool Rebuilder::is_whole(const MTF::Job_Pieces& job) {
  return job.complete &&
         std::all_of(job.channels.begin(), job.channels.end(), [&](unsigned long long channel) {
           return MTF::catalog_state(storage_, job, channel) == MTF::Catalog_State::sound;
         });
}

// The jobs that one started from come first: a catalog is made from that of its base.
bool Rebuilder::choose(std::string& error) {
  wanted_ = jobs_;
  if (options_.job.seq == 0) {
    if (jobs_.empty()) error = "there is no job of '" + options_.job.stem + "'";
    return !jobs_.empty();
  }
  wanted_.clear();
  for (unsigned int seq = options_.job.seq; seq != 0;) {
    const auto found = std::find_if(jobs_.begin(), jobs_.end(),
                                    [&](const MTF::Job_Pieces& job) { return job.seq == seq; });
    if (found == jobs_.end()) break;
    wanted_.insert(wanted_.begin(), *found);
    seq = is_whole(*found) ? 0 : MTF::base_of(storage_, *found);
  }
  if (wanted_.empty()) {
    error =
        "there is no job " + std::to_string(options_.job.seq) + " of '" + options_.job.stem + "'";
  }
  return !wanted_.empty();
}

void Rebuilder::look_at(const MTF::Job_Pieces& job, unsigned long long channel) {
  std::string catalog;
  MTF::cat_name(job.stem, job.seq, channel, catalog);
  progress_.begin(job.seq);
  switch (MTF::catalog_state(progress_.store(), job, channel)) {
    case MTF::Catalog_State::sound:
      return;
    case MTF::Catalog_State::damaged:
      if (options_.damaged) break;
      return note(exit_failed, "error: " + catalog + " is damaged: --damaged makes it again");
    case MTF::Catalog_State::missing:
      break;
  }
  if (make(job, channel, catalog, has_piece(storage_, catalog))) ++made_;
}

bool Rebuilder::make(const MTF::Job_Pieces& job, unsigned long long channel,
                     const std::string& catalog, bool replace) {
  const std::string local = work_.path() + "/rebuilt.cat";
  const auto on_fault = [&](const MTF::Fault& fault) {
    note(exit_skipped, "error: " + fault_text(fault));
  };
  MTF::Rebuild_Summary summary;
  std::string error;
  if (!MTF::rebuild_catalog(progress_.store(), job, channel, local, summary, on_fault, error) ||
      !store(local, catalog, replace, error)) {
    note(exit_failed, "error: " + catalog + " can't be made: " + error);
    return false;
  }
  report(catalog, job.seq, summary);
  return true;
}

// The piece gets its name when it is whole and on the disk.
bool Rebuilder::store(const std::string& local, const std::string& catalog, bool replace,
                      std::string& error) {
  Piece_Namer pieces(storage_);
  Storage_Channel channel(pieces, physical_block, nullptr);
  const bool written = (!replace || channel.remove(catalog.c_str())) &&
                       channel.open(catalog.c_str(), MTF::Channel::mode_write, 0) &&
                       MTF::copy_file(local, *channel.writer()) != -1 && channel.close();
  if (!written) error = channel.err_msg();
  return written && pieces.name_all(error);
}

void Rebuilder::report(const std::string& catalog, unsigned int seq,
                       const MTF::Rebuild_Summary& summary) {
  console_.line_now(made_text(catalog, seq, summary));
  if (summary.unsure != 0) {
    console_.note("note: " + catalog + ": " + entries_text(summary.unsure) +
                  (summary.unsure == 1 ? " is" : " are") +
                  " kept that may have been deleted before job " + std::to_string(seq));
  }
  if (summary.lost_base != 0) {
    note(exit_skipped, "warning: " + catalog + ": the catalog of job " +
                           std::to_string(summary.lost_base) +
                           " isn't whole: what didn't change since is missing");
  }
}

int run_rebuild(const Rebuild_Options& options, Console& console) {
  std::string error;
  const std::unique_ptr<IStorage> storage = make_storage(options.job.storage, error, options.tmp);
  if (!storage) {
    console.note("mtf-agent: " + error);
    return exit_usage;
  }
  const platform::Private_Files private_files;
  const bool opened = storage->open_for_job(options.job.stem, false, error);
  Rebuilder rebuilder(*storage, options, console);
  const bool ready = opened && rebuilder.open(error);
  std::vector<std::string> cleared = storage->cleared();
  cleared.insert(cleared.end(), rebuilder.cleared().begin(), rebuilder.cleared().end());
  if (!cleared.empty()) console.note(cleared_text(cleared));
  if (ready) return rebuilder.run();
  console.note("error: " + error);
  return exit_failed;
}

}  // namespace

void add_rebuild(CLI::App& app, Command& chosen) {
  auto options = std::make_shared<Rebuild_Options>();
  CLI::App* command = app.add_subcommand("rebuild", "Make lost catalogs again from the medias");
  command->footer(
      "Makes each catalog that is missing; one that is sound stays as it is. Reads each media of\n"
      "the job whole, and lists what is right on it; a file that isn't is named and left out.\n"
      "The media of an incremental job holds all directories and what changed, but not what\n"
      "didn't: this comes from the catalog of the job that it started from, which is made again\n"
      "first if need be. So a file that was deleted in between is listed too: nobody knows any\n"
      "more that it was. A line counts the files of directories that changed. Unless the job is\n"
      "plain, the next incremental job saves files with several names anew.\n"
      "Exit codes: 0 done; 1 a catalog could not be made; 2 wrong use; 3 done, but something was\n"
      "damaged, or the job that an incremental one started from is gone.");
  add_storage(*command, options->job.storage);
  add_name(*command, options->job.stem)->required();
  add_seq(*command, options->job.seq,
          "The job, with those that it started from; all jobs of the name where it is left out");
  command->add_flag("--damaged", options->damaged,
                    "Also make catalogs that are damaged, in their place");
  add_quiet(*command, options->quiet);
  command->add_option("--tmp", options->tmp, "The directory for working files")->type_name("DIR");
  command->callback([options, &chosen] {
    chosen = [options](Console& console) { return run_rebuild(*options, console); };
  });
}

}  // namespace agent
