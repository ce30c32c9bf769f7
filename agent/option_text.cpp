#include "agent/option_text.h"

#include <algorithm>

namespace agent {

std::string one_line(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  return text;
}

std::vector<Option_Text> option_texts(const CLI::App& command) {
  std::vector<Option_Text> all;
  for (const CLI::Option* option : command.get_options()) {
    if (option->get_group().empty()) continue;
    Option_Text text;
    text.is_argument = option->get_positional();
    text.name = text.is_argument ? option->get_name(true) : "--" + option->get_lnames().at(0);
    const bool is_flag = option->get_items_expected_max() == 0;
    if (!is_flag && !text.is_argument) text.type = option->get_type_name();
    text.help = one_line(option->get_description());
    text.preset = option->get_default_str();
    text.required = option->get_required();
    text.repeated = text.is_argument && option->get_items_expected_max() > 1;
    all.push_back(text);
  }
  return all;
}

std::vector<const CLI::App*> commands_of(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App* command) { return !command->get_name().empty(); });
}

std::vector<std::string> choices_of(const std::string& type) {
  std::vector<std::string> choices;
  if (type.find('|') == std::string::npos) return choices;
  for (std::size_t start = 0, end = 0; end != std::string::npos; start = end + 1) {
    end = type.find('|', start);
    choices.push_back(type.substr(start, end - start));
  }
  return choices;
}

}  // namespace agent
