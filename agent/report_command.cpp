#include <fstream>
#include <memory>

#include "agent/commands.h"
#include "agent/exit_code.h"
#include "agent/report_page.h"
#include "agent/storage.h"
#include "agent/text.h"
#include "platform/host.h"

namespace agent {
namespace {

struct Report_Options {
  Job_Options job;
  std::string html;
};

bool write_page(const std::string& path, const std::string& page) {
  const platform::Private_Files private_files;  // names of files are nobody else's business
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << page;
  file.close();
  return file.good();
}

int run_report(const Report_Options& options, Console& console) {
  std::string error;
  const std::unique_ptr<IStorage> storage = make_storage(options.job.storage, error);
  if (!storage) {
    console.note("mtf-agent: " + error);
    return exit_usage;
  }
  Report_Data data;
  if (!storage->open_for_reading(error) ||
      !gather_report(*storage, options.job.stem, options.job.seq, data, error)) {
    console.note("error: " + error);
    return exit_failed;
  }
  if (!write_page(options.html, report_page(data))) {
    console.note("error: " + error_text(escape_name(options.html), errno));
    return exit_failed;
  }
  console.line("wrote a report of " + count_text(data.jobs.size(), "job") + " to " +
               escape_name(options.html));
  return exit_done;
}

}  // namespace

void add_report(CLI::App& app, Command& chosen) {
  auto options = std::make_shared<Report_Options>();
  CLI::App* command = app.add_subcommand("report", "Draw a page about the jobs of a name");
  command->footer(
      "The page shows the chain of jobs, what each saved and needs, what grew, the largest\n"
      "directories and files of a job, and what is damaged. It needs nothing from elsewhere and\n"
      "opens in any browser. It is for its owner alone, as it names files.\n"
      "Exit codes: 0 done; 1 failed; 2 wrong use.");
  command->add_option("--html", options->html, "The file to write; one that is there goes")
      ->required()
      ->type_name("FILE");
  add_storage(*command, options->job.storage);
  add_name(*command, options->job.stem)->required();
  add_seq(*command, options->job.seq,
          "The job of the lists; the newest complete one where it is left out");
  command->callback([options, &chosen] {
    chosen = [options](Console& console) { return run_report(*options, console); };
  });
}

}  // namespace agent
