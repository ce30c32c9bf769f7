// Manual pages, made from the definition of the command line.
#pragma once

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <string>

namespace agent {

// The page of the program, in the language of man.
std::string program_page(const CLI::App& app);

// The page of one of its commands.
std::string command_page(const CLI::App& app, const CLI::App& command);

}  // namespace agent
