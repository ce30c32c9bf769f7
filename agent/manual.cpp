#include "agent/manual.h"

#include <algorithm>

#include "agent/option_text.h"

namespace agent {
namespace {

// Text in which nothing is a command of the language.
std::string plain(const std::string& text) {
  std::string out;
  bool line_start = true;
  for (const char letter : text) {
    if (line_start && (letter == '.' || letter == '\'')) out += "\\&";
    if (letter == '\\') {
      out += "\\e";
    } else if (letter == '-') {
      out += "\\-";
    } else {
      out += letter;
    }
    line_start = letter == '\n';
  }
  return out;
}

std::string bold(const std::string& text) {
  return "\\fB" + plain(text) + "\\fR";
}

std::string italic(const std::string& text) {
  return "\\fI" + plain(text) + "\\fR";
}

std::string header(const CLI::App& app, std::string name, const std::string& what) {
  const std::string lower = name;
  std::transform(name.begin(), name.end(), name.begin(),
                 [](unsigned char letter) { return std::toupper(letter); });
  return ".TH " + plain(name) + " 1 \"\" \"" + plain(app.version()) + "\" \"User Commands\"\n" +
         ".SH NAME\n" + plain(lower) + " \\- " + plain(what) + "\n";
}

// "--source PATH" as it stands in a page.
std::string form_of(const Option_Text& option) {
  if (option.is_argument) return italic(option.name) + (option.repeated ? "..." : "");
  return bold(option.name) + (option.type.empty() ? "" : " " + italic(option.type));
}

std::string options_section(const CLI::App& command) {
  std::string out = ".SH OPTIONS\n";
  for (const Option_Text& option : option_texts(command)) {
    out += ".TP\n" + form_of(option) + "\n" + plain(option.help) + ".";
    if (option.required) out += " Required.";
    if (!option.preset.empty()) out += " Default: " + plain(option.preset) + ".";
    out += '\n';
  }
  return out;
}

std::string synopsis(const std::string& words, const CLI::App& command) {
  std::string out = ".SH SYNOPSIS\n" + bold(words);
  std::string arguments;
  for (const Option_Text& option : option_texts(command)) {
    if (option.is_argument) {
      arguments += option.required ? " " + form_of(option) : " [" + form_of(option) + "]";
    } else if (option.required) {
      out += ' ' + form_of(option);
    }
  }
  return out + " [" + italic("OPTION") + "]..." + arguments + "\n";
}

// A footer's sentences, without the line breaks that suit a terminal.
std::string footer_section(const CLI::App& command) {
  const std::string mark = "Exit codes: ";
  const std::string text = one_line(command.get_footer());
  const std::size_t codes = text.find(mark);
  std::string out;
  if (codes != 0) out += ".SH NOTES\n" + plain(text.substr(0, codes)) + "\n";
  if (codes != std::string::npos) {
    out += ".SH EXIT STATUS\n" + plain(text.substr(codes + mark.size())) + "\n";
  }
  return out;
}

std::string page_name(const CLI::App& app, const CLI::App& command) {
  return app.get_name() + '-' + command.get_name();
}

}  // namespace

std::string program_page(const CLI::App& app) {
  std::string out = header(app, app.get_name(), "save directory trees and bring them back");
  out += ".SH SYNOPSIS\n" + bold(app.get_name()) + ' ' + italic("COMMAND") + " [" +
         italic("OPTION") + "]...\n.SH DESCRIPTION\n" + plain(one_line(app.get_description())) +
         "\n.SH COMMANDS\n";
  for (const CLI::App* command : commands_of(app)) {
    out += ".TP\n" + bold(command->get_name()) + "\n" +
           plain(one_line(command->get_description())) + ". See " + bold(page_name(app, *command)) +
           "(1).\n";
  }
  return out + options_section(app) + footer_section(app);
}

std::string command_page(const CLI::App& app, const CLI::App& command) {
  const std::string what = one_line(command.get_description());
  return header(app, page_name(app, command), what) +
         synopsis(app.get_name() + ' ' + command.get_name(), command) + ".SH DESCRIPTION\n" +
         plain(what) + ".\n" + options_section(command) + footer_section(command) +
         ".SH SEE ALSO\n" + bold(app.get_name()) + "(1)\n";
}

}  // namespace agent
