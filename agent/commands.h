// The commands of mtf-agent. Each adds itself to the command line: its options, its help, and what
// is to be run when it is chosen.
#pragma once

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <functional>

#include "agent/console.h"
#include "agent/job_options.h"

namespace agent {

using Command = std::function<int(Console&)>;

// All of the command line: its commands, and what the program says of itself. Here as below
// `chosen` must live until the line has been parsed.
void define_command_line(CLI::App& app, Command& chosen);

void add_full(CLI::App& app, Command& chosen);
void add_incremental(CLI::App& app, Command& chosen);
void add_list(CLI::App& app, Command& chosen);
void add_find(CLI::App& app, Command& chosen);
void add_diff(CLI::App& app, Command& chosen);
void add_verify(CLI::App& app, Command& chosen);
void add_restore(CLI::App& app, Command& chosen);
void add_remove(CLI::App& app, Command& chosen);
void add_prune(CLI::App& app, Command& chosen);
void add_copy(CLI::App& app, Command& chosen);
void add_rebuild(CLI::App& app, Command& chosen);
void add_unlock(CLI::App& app, Command& chosen);
void add_jobs(CLI::App& app, Command& chosen);
void add_mount(CLI::App& app, Command& chosen);
void add_report(CLI::App& app, Command& chosen);

// The options that several commands have.
CLI::Option* add_storage(CLI::App& command, std::string& storage);
CLI::Option* add_name(CLI::App& command, std::string& stem);
CLI::Option* add_seq(CLI::App& command, unsigned int& seq, const char* help);
CLI::Option* add_quiet(CLI::App& command, bool& quiet);
CLI::Option* add_json(CLI::App& command, bool& json);

// Why `text` is more or less than a number in decimal digits; empty if it isn't.
std::string number_fault(const std::string& text);

// A number from `low` to `high`.
template <class Number>
CLI::Validator number_range(Number low, Number high) {
  const CLI::Range range(low, high);
  const auto fault = [range](std::string& text) {
    const std::string why = range(text);
    return why.empty() ? number_fault(text) : why;
  };
  return CLI::Validator(fault, "");
}

// Carries out a full or incremental job. Returns the exit code.
int run_full(const Full_Options& options, Console& console);

}  // namespace agent
