#include "agent/command_line.h"

#include <algorithm>
#include <exception>
#include <memory>

#include "agent/commands.h"
#include "agent/exit_code.h"
#include "agent/help_text.h"
#include "agent/rclone.h"
#include "agent/stem.h"
#include "agent/text.h"

namespace agent {
namespace {

constexpr const char* description =
    "mtf-agent saves directory trees in the Microsoft Tape Format, and brings them back.";
constexpr const char* footer =
    "Exit codes: 0 done; 1 failed; 2 wrong use; 3 done, but entries were skipped or went bad.\n"
    "'mtf-agent COMMAND --help' tells about a command.";

bool has_command(const CLI::App& app, const std::string& name) {
  const auto all = app.get_subcommands([](const CLI::App*) { return true; });
  return std::any_of(all.begin(), all.end(),
                     [&](const CLI::App* command) { return command->get_name() == name; });
}

std::string unexpected_text(const std::vector<std::string>& words) {
  std::string text = words.size() == 1 ? "The following argument was not expected:"
                                       : "The following arguments were not expected:";
  for (const std::string& word : words) text += ' ' + word;
  return text;
}

std::string first_line(const std::string& text) {
  return text.substr(0, text.find('\n'));
}

// What isn't known comes ahead of what is missing: it may be that, misspelt.
std::string usage_fault(const CLI::App& app, const CLI::ParseError& error) {
  const std::vector<std::string> unexpected = app.remaining(true);
  const bool is_missing = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
  const bool is_extra = dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr;
  return is_extra || (is_missing && !unexpected.empty()) ? unexpected_text(unexpected)
                                                         : first_line(error.what());
}

}  // namespace

void define_command_line(CLI::App& app, Command& chosen) {
  app.name("mtf-agent");
  app.description(description);
  app.formatter(std::make_shared<Help_Formatter>());
  app.require_subcommand(1);
  app.set_version_flag("--version", "mtf-agent 0.1.0");
  app.footer(footer);
  add_full(app, chosen);
  add_incremental(app, chosen);
  add_list(app, chosen);
  add_find(app, chosen);
  add_diff(app, chosen);
  add_verify(app, chosen);
  add_restore(app, chosen);
  add_remove(app, chosen);
  add_prune(app, chosen);
  add_copy(app, chosen);
  add_unlock(app, chosen);
  add_rebuild(app, chosen);
  add_jobs(app, chosen);
  add_mount(app, chosen);
  add_report(app, chosen);
}

std::string number_fault(const std::string& text) {
  const bool plain = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos &&
                     (text.size() == 1 || text[0] != '0');
  return plain ? "" : "'" + text + "' isn't a plain number";
}

CLI::Option* add_storage(CLI::App& command, std::string& storage) {
  return command
      .add_option("--storage", storage,
                  "Where the jobs are: a directory, or rclone:REMOTE:PATH for a path of a\n"
                  "remote in the configuration of rclone")
      ->required()
      ->type_name("STORAGE");
}

CLI::Option* add_name(CLI::App& command, std::string& stem) {
  return command
      .add_option("--name", stem, "The name of the chain of jobs: letters, digits, '_' and '-'")
      ->check(CLI::Validator(stem_fault, ""))
      ->type_name("STEM");
}

CLI::Option* add_seq(CLI::App& command, unsigned int& seq, const char* help) {
  return command.add_option("--seq", seq, help)->check(number_range(1U, last_seq))->type_name("N");
}

CLI::Option* add_quiet(CLI::App& command, bool& quiet) {
  return command.add_flag("--quiet", quiet, "No progress");
}

CLI::Option* add_json(CLI::App& command, bool& json) {
  return command.add_flag("--json", json,
                          "Print JSON, one object a line; a name that isn't UTF-8 also as its\n"
                          "bytes, in hexadecimal: \"path_hex\" beside \"path\"");
}

Command_Line parse_command_line(const std::vector<std::string>& arguments) {
  Command_Line result;
  CLI::App app;
  define_command_line(app, result.command);
  if (arguments.empty()) {
    result.exit_code = exit_usage;
    result.text = "mtf-agent: a command is missing; 'mtf-agent --help' names them all\n";
    return result;
  }
  if (arguments[0].compare(0, 1, "-") != 0 && !has_command(app, arguments[0])) {
    result.exit_code = exit_usage;
    result.text = "mtf-agent: there is no command '" + escape_controls(arguments[0]) +
                  "'; 'mtf-agent --help' names them all\n";
    return result;
  }
  std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
  try {
    app.parse(reversed);
  } catch (const CLI::CallForHelp&) {
    result.text = app.help();
  } catch (const CLI::CallForVersion&) {
    result.text = app.version() + '\n';
  } catch (const CLI::ParseError& error) {
    result.exit_code = exit_usage;
    result.text = "mtf-agent: " + escape_controls(usage_fault(app, error)) + '\n';
  }
  if (!result.text.empty()) result.command = nullptr;
  return result;
}

int run(const std::vector<std::string>& arguments, Console& console) {
  try {
    const Command_Line line = parse_command_line(arguments);
    std::string text = line.text;
    if (!text.empty()) text.pop_back();
    if (line.command) {
      int code = line.command(console);
      for (const std::string& trouble : take_troubles()) {
        console.note("error: " + trouble);
        if (code == exit_done) code = exit_failed;
      }
      if (console.finish()) return code;
      console.note("error: the output could not be written");
      return exit_failed;
    }
    line.exit_code == exit_done ? console.line(text) : console.note(text);
    return line.exit_code;
  } catch (const std::exception& error) {
    console.note(std::string("error: ") + error.what());
    return exit_failed;
  }
}

}  // namespace agent
