#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

#include "agent/commands.h"
#include "agent/entry_text.h"
#include "agent/exit_code.h"
#include "agent/job_choice.h"
#include "agent/json_text.h"
#include "agent/stem.h"
#include "agent/text.h"
#include "mtf/reader/compare.h"
#include "oxbase/directory_iterator.h"
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

// "content,attributes". For a person "was file" in place of "type".
std::string what_changed(const MTF::Job_Change& change, bool for_person) {
  std::string text;
  const auto add = [&](bool here, const char* word) {
    if (here) text += (text.empty() ? "" : ",") + std::string(word);
  };
  add(change.type && !for_person, "type");
  if (change.type && for_person) text = std::string("was ") + type_text(change.old_type);
  add(change.content, "content");
  add(change.attributes, "attributes");
  add(change.links, "links");
  return text;
}

struct Shown_Change {
  MTF::Job_Change change;
  std::string kind;
};

std::string change_line(const Shown_Change& shown) {
  const MTF::Job_Change& change = shown.change;
  char columns[80];
  std::snprintf(columns, sizeof columns, "%c  %-8s  %-18s  ", row_of(change.kind).letter,
                shown.kind.c_str(), what_changed(change, true).c_str());
  return columns + escape_name(platform::display_path(change.entry.path));
}

std::string change_json(const Shown_Change& shown) {
  const MTF::Job_Change& change = shown.change;
  json_spirit::Document document{{"change", row_of(change.kind).word},
                                 {"what", what_changed(change, false)},
                                 {"type", shown.kind},
                                 {"path", platform::display_path(change.entry.path)},
                                 {"size", bytes_json(change.entry)},
                                 {"mtime", change.entry.mtime},
                                 {"seq", change.entry.seq}};
  if (change.type) document["old_type"] = type_text(change.old_type);
  return json_text(document);
}

class Differ {
 public:
  Differ(const Diff_Options& options, Console& console) : options_(options), console_(console) {}

  int run(MTF::IPiece_Store& store, const MTF::Job_Pieces& first, const MTF::Job_Pieces& second) {
    const auto on_fault = [&](const MTF::Fault& fault) {
      console_.note("error: " + fault_text(fault));
    };
    MTF::Link_Targets old_targets(store, first), targets(store, second);
    const auto on_change = [&](const MTF::Job_Change& change) {
      const bool removed = change.kind == Kind::removed;
      changes_.push_back({change, kind_text(change.entry, removed ? old_targets : targets)});
    };
    const bool sound =
        MTF::compare_jobs(store, first, second, options_.quick, on_change, same_, on_fault);
    std::sort(changes_.begin(), changes_.end(), [](const auto& a, const auto& b) {
      return oxbase::path_less(a.change.entry.path, b.change.entry.path);
    });
    for (const Shown_Change& shown : changes_) {
      console_.line(options_.job.json ? change_json(shown) : change_line(shown));
    }
    report();
    return sound ? exit_done : exit_failed;
  }

 private:
  template <class Condition>
  unsigned long long count(Condition condition) const {
    return static_cast<unsigned long long>(
        std::count_if(changes_.begin(), changes_.end(),
                      [&](const Shown_Change& shown) { return condition(shown.change); }));
  }
  unsigned long long count_of(Kind kind) const {
    return count([&](const MTF::Job_Change& change) { return change.kind == kind; });
  }

  void report() const {
    const auto content = count([](const auto& change) { return change.content; });
    const auto attributes = count([](const auto& change) { return change.attributes; });
    const auto links = count([](const auto& change) { return change.links; });
    if (options_.job.json) {
      const json_spirit::Document sums{{"added", count_of(Kind::added)},
                                       {"removed", count_of(Kind::removed)},
                                       {"changed", count_of(Kind::changed)},
                                       {"content", content},
                                       {"attributes", attributes},
                                       {"links", links},
                                       {"same", same_}};
      return console_.line("{\"summary\":" + json_text(sums) + '}');
    }
    console_.line(std::to_string(count_of(Kind::added)) + " added, " +
                  std::to_string(count_of(Kind::removed)) + " removed, " +
                  std::to_string(count_of(Kind::changed)) + " changed (" + std::to_string(content) +
                  " in content, " + std::to_string(attributes) + " in attributes" +
                  (links != 0 ? ", " + std::to_string(links) + " in links" : "") + "), " +
                  std::to_string(same_) + " the same");
  }

  const Diff_Options& options_;
  Console& console_;
  std::vector<Shown_Change> changes_;
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
      "what type it was, content, attributes (date, owner, mode, extended attributes; of a\n"
      "directory not its date), links (the name became a further name of a file, or ceased to be\n"
      "one, or is one of another file). The content of a symbolic link is what it leads to, that\n"
      "of a device its number, that of a further name its file's. Entries come in the order of a\n"
      "walk; a closing line has the sums. What both jobs take from one place isn't read again.\n"
      "Exit codes: 0 done, whatever was found; 1 something could not be read; 2 wrong use.");
  add_storage(*command, options->job.storage);
  add_name(*command, options->job.stem)->required();
  command->add_flag("--quick", options->quick,
                    "Compare size and date of files only, and read no media");
  add_json(*command, options->job.json);
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
