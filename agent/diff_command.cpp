#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

#include "agent/commands.h"
#include "agent/entry_text.h"
#include "agent/exit_code.h"
#include "agent/job_choice.h"
#include "agent/job_events.h"
#include "agent/stem.h"
#include "agent/text.h"
#include "mtf/reader/compare.h"
#include "platform/native_path.h"

namespace agent {
namespace {

using Kind = MTF::Job_Change::Kind;

constexpr struct {
  Kind kind;
  char letter;
  const char* word;
} kinds[] = {
    {Kind::added, 'A', "added"}, {Kind::removed, 'D', "removed"}, {Kind::changed, 'M', "changed"}};

const auto& row_of(Kind kind) {
  return *std::find_if(std::begin(kinds), std::end(kinds),
                       [&](const auto& row) { return row.kind == kind; });
}

// "content,attributes".
std::string what_changed(const MTF::Job_Change& change) {
  std::string text;
  const auto add = [&](bool here, const char* word) {
    if (here) text += (text.empty() ? "" : ",") + std::string(word);
  };
  add(change.type, "type");
  add(change.content, "content");
  add(change.attributes, "attributes");
  return text;
}

std::string change_line(const MTF::Job_Change& change) {
  char columns[80];
  std::snprintf(columns, sizeof columns, "%c  %-8s  %-18s  ", row_of(change.kind).letter,
                type_text(change.entry.type), what_changed(change).c_str());
  return columns + escape_name(platform::display_path(change.entry.path));
}

std::string change_json(const MTF::Job_Change& change) {
  return json_text({{"change", row_of(change.kind).word},
                    {"what", what_changed(change)},
                    {"type", type_text(change.entry.type)},
                    {"path", platform::display_path(change.entry.path)},
                    {"size", change.entry.size},
                    {"mtime", change.entry.mtime},
                    {"seq", change.entry.seq}});
}

class Differ {
 public:
  Differ(const Diff_Options& options, Console& console) : options_(options), console_(console) {}

  int run(MTF::IPiece_Store& store, const MTF::Job_Pieces& first, const MTF::Job_Pieces& second) {
    const auto on_fault = [&](const MTF::Fault& fault) {
      console_.note("error: " + fault_text(fault));
    };
    const bool sound = MTF::compare_jobs(
        store, first, second, options_.quick,
        [&](const MTF::Job_Change& change) { changes_.push_back(change); }, same_, on_fault);
    std::sort(changes_.begin(), changes_.end(),
              [](const auto& a, const auto& b) { return a.entry.path < b.entry.path; });
    for (const MTF::Job_Change& change : changes_) {
      console_.line(options_.job.json ? change_json(change) : change_line(change));
    }
    report();
    return sound ? exit_done : exit_failed;
  }

 private:
  template <class Condition>
  unsigned long long count(Condition condition) const {
    return static_cast<unsigned long long>(
        std::count_if(changes_.begin(), changes_.end(), condition));
  }
  unsigned long long count_of(Kind kind) const {
    return count([&](const auto& change) { return change.kind == kind; });
  }

  void report() const {
    const auto content = count([](const auto& change) { return change.content; });
    const auto attributes = count([](const auto& change) { return change.attributes; });
    if (options_.job.json) {
      const json_spirit::Document sums{
          {"added", count_of(Kind::added)},     {"removed", count_of(Kind::removed)},
          {"changed", count_of(Kind::changed)}, {"content", content},
          {"attributes", attributes},           {"same", same_}};
      return console_.line("{\"summary\":" + json_text(sums) + '}');
    }
    console_.line(std::to_string(count_of(Kind::added)) + " added, " +
                  std::to_string(count_of(Kind::removed)) + " removed, " +
                  std::to_string(count_of(Kind::changed)) + " changed (" + std::to_string(content) +
                  " in content, " + std::to_string(attributes) + " in attributes), " +
                  std::to_string(same_) + " the same");
  }

  const Diff_Options& options_;
  Console& console_;
  std::vector<MTF::Job_Change> changes_;
  unsigned long long same_ = 0;
};

int run_diff(const Diff_Options& options, Console& console) {
  Job_Choice first, second;
  Job_Options job = options.job;
  std::string error;
  job.seq = options.first;
  bool opened = first.open(job, error);
  job.seq = options.second;
  opened = opened && second.open(job, error);
  if (!opened) {
    console.note("error: " + error);
    return exit_failed;
  }
  for (const Job_Choice* each : {&first, &second}) {
    if (!each->warning().empty()) console.note(each->warning());
  }
  return Differ(options, console).run(first.store(), first.job(), second.job());
}

}  // namespace

void add_diff(CLI::App& app, Command& chosen) {
  auto options = std::make_shared<Diff_Options>();
  CLI::App* command = app.add_subcommand("diff", "Show what changed from one job to another");
  command->footer(
      "One line for each entry, by its path: A added, D removed, M changed, with what about it:\n"
      "type, content, attributes (date, owner, mode, extended attributes; of a directory not its\n"
      "date). The content of a link is what it leads to, that of a device its number. A closing\n"
      "line has the sums. What both jobs take from one place isn't read again.\n"
      "Exit codes: 0 done, whatever was found; 1 something could not be read; 2 wrong use.");
  add_storage(*command, options->job.storage);
  add_name(*command, options->job.stem)->required();
  command->add_flag("--quick", options->quick,
                    "Compare size and date of files only, and read no media");
  command->add_flag("--json", options->job.json, "Print JSON, one object a line");
  for (unsigned int* seq : {&options->first, &options->second}) {
    command->add_option(seq == &options->first ? "FROM" : "TO", *seq, "A job's number")
        ->required()
        ->check(number_range(1U, last_seq))
        ->type_name("SEQ");
  }
  command->callback([options, &chosen] {
    chosen = [options](Console& console) { return run_diff(*options, console); };
  });
}

}  // namespace agent
