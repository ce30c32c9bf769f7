// What the command line's definition says of an option, for the pages made from it.
#pragma once

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <string>
#include <vector>

namespace agent {

struct Option_Text {
  std::string name;    // "--source", or that of an argument such as "PATH"
  std::string type;    // "DIR", "none|lz4|zstd"; empty for a flag or an argument
  std::string help;    // one line
  std::string preset;  // its default; empty if it has none or that isn't told
  bool required;
  bool is_argument;
  bool repeated;  // an argument that may be given several times
};

// The options of a command, --help among them, and its arguments, in their order.
std::vector<Option_Text> option_texts(const CLI::App& command);

// The commands of the program.
std::vector<const CLI::App*> commands_of(const CLI::App& app);

// The values that a type such as "none|lz4|zstd" allows; empty for any other type.
std::vector<std::string> choices_of(const std::string& type);

// Two or more lines as one.
std::string one_line(std::string text);

}  // namespace agent
