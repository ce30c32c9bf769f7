// Completion of the command line, made from its definition.
#pragma once

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <string>

namespace agent {

// A script for each shell, to be put where the shell looks for one of the program's name.
std::string bash_completion(const CLI::App& app);
std::string zsh_completion(const CLI::App& app);
std::string fish_completion(const CLI::App& app);

}  // namespace agent
