#include "agent/help_text.h"

#include "agent/option_text.h"

namespace agent {

std::string Help_Formatter::make_usage(const CLI::App* app, std::string name) const {
  if (!commands_of(*app).empty()) return "Usage: " + app->get_name() + " COMMAND [OPTIONS]\n";
  std::string text = "Usage: " + name;
  std::string arguments;
  for (const Option_Text& option : option_texts(*app)) {
    if (option.is_argument) {
      const std::string word = option.name + (option.repeated ? "..." : "");
      arguments += option.required ? ' ' + word : " [" + word + ']';
    } else if (option.required) {
      text += ' ' + option.name + ' ' + option.type;
    }
  }
  return text + " [OPTIONS]" + arguments + "\n";
}

std::string Help_Formatter::make_option_opts(const CLI::Option* option) const {
  const bool has_value = option->get_type_size() != 0 && !option->get_positional();
  return has_value ? ' ' + option->get_type_name() : "";
}

std::string Help_Formatter::make_option_desc(const CLI::Option* option) const {
  const std::string preset = option->get_default_str();
  return option->get_description() + (option->get_required() ? " (required)" : "") +
         (preset.empty() ? "" : " (default: " + preset + ')');
}

}  // namespace agent
