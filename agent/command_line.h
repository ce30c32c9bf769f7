// The command line of mtf-agent.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "agent/console.h"

namespace agent {

// What a command line asks for: a command to run, or a text and an exit code to end with at once
// (help, the version, or exit_usage with one line that says what is wrong).
struct Command_Line {
  std::function<int(Console&)> command;  // empty where there is nothing to run
  int exit_code = 0;
  std::string text;  // for standard output with exit_done, else for standard error
};

// `arguments` are those behind the name of the program.
Command_Line parse_command_line(const std::vector<std::string>& arguments);

// Parses the arguments and carries out the command. Returns the exit code of the process.
int run(const std::vector<std::string>& arguments, Console& console);

}  // namespace agent
