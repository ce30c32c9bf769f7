#include "agent/completion.h"

#include <algorithm>

#include "agent/option_text.h"

namespace agent {
namespace {

// What a shell can offer for a value.
enum class Offer { nothing, files, directories, choices };

Offer offer_for(const Option_Text& option) {
  const std::string& type = option.is_argument ? option.name : option.type;
  if (!choices_of(type).empty()) return Offer::choices;
  if (type == "DIR" || type == "STORAGE") return Offer::directories;
  return type == "FILE" || type == "PATH" ? Offer::files : Offer::nothing;
}

std::string joined(const std::vector<std::string>& words) {
  std::string out;
  for (const std::string& word : words) out += (out.empty() ? "" : " ") + word;
  return out;
}

// A text in single quotes for a shell. `quote` is what stands for a quote in it.
std::string quoted(const std::string& text, const char* quote) {
  std::string out = "'";
  for (const char letter : text) letter == '\'' ? out += quote : out += letter;
  return out + "'";
}

std::string bash_offer(Offer offer, const std::string& type) {
  switch (offer) {
    case Offer::files:
      return "compgen -f";
    case Offer::directories:
      return "compgen -d";
    case Offer::choices:
      return "compgen -W " + quoted(joined(choices_of(type)), "'\\''");
    default:
      return "";
  }
}

std::string bash_reply(const std::string& offer) {
  if (offer.empty()) return "COMPREPLY=()";
  return "mapfile -t COMPREPLY < <(" + offer + " -- \"$word\")";
}

// One command's part: values of its options, then the options, then its arguments.
std::string bash_command(const CLI::App& command) {
  std::vector<std::string> names;
  std::string values, argument;
  for (const Option_Text& option : option_texts(command)) {
    const std::string offer = bash_offer(offer_for(option), option.type);
    if (option.is_argument) {
      argument = offer;
      continue;
    }
    names.push_back(option.name);
    if (option.type.empty()) continue;
    values += "        " + option.name + ") " + bash_reply(offer) + "; return ;;\n";
  }
  std::string out = "    " + command.get_name() + ")\n";
  if (!values.empty()) out += "      case $before in\n" + values + "      esac\n";
  out += "      options=" + quoted(joined(names), "'\\''") + "\n";
  if (!argument.empty()) {
    out += "      [[ $word == -* ]] || { " + bash_reply(argument) + "; return; }\n";
  }
  return out + "      ;;\n";
}

std::string zsh_text(const std::string& text) {
  std::string out;
  for (const char letter : text) {
    if (letter == '[' || letter == ']' || letter == ':' || letter == '\\') out += '\\';
    out += letter;
  }
  return out;
}

std::string zsh_value(const Option_Text& option) {
  const std::string message = zsh_text(option.is_argument ? option.name : option.type);
  switch (offer_for(option)) {
    case Offer::files:
      return ":" + message + ":_files";
    case Offer::directories:
      return ":" + message + ":_files -/";
    case Offer::choices:
      return ":value:(" + joined(choices_of(option.type)) + ")";
    default:
      return ":" + message + ": ";
  }
}

std::string zsh_command(const CLI::App& command) {
  std::string out = "    " + command.get_name() + ")\n      _arguments";
  for (const Option_Text& option : option_texts(command)) {
    const std::string form = option.is_argument
                                 ? (option.repeated ? "*" : "") + zsh_value(option)
                                 : "*" + option.name + "[" + zsh_text(option.help) + "]" +
                                       (option.type.empty() ? "" : zsh_value(option));
    out += " \\\n        " + quoted(form, "'\\''");
  }
  return out + "\n      ;;\n";
}

std::string fish_value(const Option_Text& option) {
  switch (offer_for(option)) {
    case Offer::files:
      return " -r -F";
    case Offer::directories:
      return " -x -a '(__fish_complete_directories)'";
    case Offer::choices:
      return " -x -a " + quoted(joined(choices_of(option.type)), "\\'");
    default:
      return option.type.empty() ? "" : " -x";
  }
}

std::string fish_command(const std::string& program, const CLI::App& command) {
  const std::string when =
      "complete -c " + program + " -n '__fish_seen_subcommand_from " + command.get_name() + "'";
  std::string out;
  for (const Option_Text& option : option_texts(command)) {
    if (option.is_argument) {
      out += when + " -F\n";
    } else {
      out += when + " -l " + option.name.substr(2) + fish_value(option) + " -d " +
             quoted(option.help, "\\'") + "\n";
    }
  }
  return out;
}

}  // namespace

std::string bash_completion(const CLI::App& app) {
  std::vector<std::string> names;
  std::string parts;
  for (const CLI::App* command : commands_of(app)) {
    names.push_back(command->get_name());
    parts += bash_command(*command);
  }
  for (const Option_Text& option : option_texts(app)) names.push_back(option.name);
  const std::string& program = app.get_name();
  return "# bash completion for " + program + "\n_mtf_agent() {\n" +
         "  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} options\n"
         "  options=" +
         quoted(joined(names), "'\\''") +
         "\n  if ((COMP_CWORD > 1)); then\n    case ${COMP_WORDS[1]} in\n" + parts +
         "    *) options= ;;\n    esac\n  fi\n"
         "  mapfile -t COMPREPLY < <(compgen -W \"$options\" -- \"$word\")\n}\n"
         "complete -o filenames -F _mtf_agent " +
         program + "\n";
}

std::string zsh_completion(const CLI::App& app) {
  std::string names, parts;
  for (const CLI::App* command : commands_of(app)) {
    const std::string text =
        zsh_text(command->get_name()) + ":" + one_line(command->get_description());
    names += "    " + quoted(text, "'\\''") + "\n";
    parts += zsh_command(*command);
  }
  return "#compdef " + app.get_name() +
         "\nlocal -a commands\nif ((CURRENT == 2)); then\n  commands=(\n" + names +
         "  )\n  _describe command commands\n  _arguments '--help' '--version'\n"
         "  return\nfi\nlocal command=$words[2]\nshift words\n((CURRENT--))\ncase $command in\n" +
         parts + "esac\n";
}

std::string fish_completion(const CLI::App& app) {
  const std::string& program = app.get_name();
  std::string out = "complete -c " + program + " -f\n";
  for (const CLI::App* command : commands_of(app)) {
    out += "complete -c " + program + " -n __fish_use_subcommand -a " + command->get_name() +
           " -d " + quoted(one_line(command->get_description()), "\\'") + "\n";
  }
  for (const Option_Text& option : option_texts(app)) {
    out += "complete -c " + program + " -n __fish_use_subcommand -l " + option.name.substr(2) +
           " -d " + quoted(option.help, "\\'") + "\n";
  }
  for (const CLI::App* command : commands_of(app)) out += fish_command(program, *command);
  return out;
}

}  // namespace agent
