// How --help shows the options.
#pragma once

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <string>

namespace agent {

// "--seq N", with what an option needs or stands for otherwise behind its words: "(required)",
// "(default: 1)". The first line names the options that a command can't do without.
class Help_Formatter : public CLI::Formatter {
 public:
  std::string make_usage(const CLI::App* app, std::string name) const override;
  std::string make_option_opts(const CLI::Option* option) const override;
  std::string make_option_desc(const CLI::Option* option) const override;
};

}  // namespace agent
