// The manual pages and completions that are made from the command line.
#include <gtest/gtest.h>

#include <filesystem>

#include "agent/commands.h"
#include "agent/completion.h"
#include "agent/manual.h"
#include "tests/support/process.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace test_support;

class Pages : public testing::Test {
 protected:
  Pages() { agent::define_command_line(app_, chosen_); }

  // Runs a script with bash; what it prints.
  Output bash(const std::string& script) const { return run({"/bin/bash", "-c", script}); }

  // Checks that every option stands in `page` and in all that bash offers behind `words`.
  void expect_options(const CLI::App& command, const std::string& words, const std::string& page) {
    const Output offered = bash("source " + script_ + "; COMP_WORDS=(mtf-agent " + words +
                                " --); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _mtf_agent; printf "
                                "'%s\\n' \"${COMPREPLY[@]}\"");
    EXPECT_EQ(offered.code, 0);
    EXPECT_EQ(offered.err, "");
    for (const CLI::Option* option : command.get_options()) {
      if (option->get_positional()) continue;
      const std::string name = option->get_lnames().at(0);
      EXPECT_NE(('\n' + offered.out).find("\n--" + name + '\n'), std::string::npos)
          << words << name;
      std::string in_page = "\\-\\-" + name;
      for (std::size_t at = 4; (at = in_page.find('-', at)) != std::string::npos; at += 2) {
        in_page.insert(at, "\\");
      }
      EXPECT_NE(page.find("\\fB" + in_page + "\\fR"), std::string::npos) << words << ' ' << name;
      const std::string fish = agent::fish_completion(app_), zsh = agent::zsh_completion(app_);
      EXPECT_NE(fish.find(" -l " + name + ' '), std::string::npos) << name;
      EXPECT_TRUE(words.empty() || zsh.find("'*--" + name + '[') != std::string::npos) << name;
    }
    if (run({"/bin/sh", "-c", "command -v man"}).code != 0) {
      std::cout << "there is no man here: the form of the pages wasn't checked\n";
      return;
    }
    write_file(dir_ / "page", page);
    const Output shown =
        run({"/usr/bin/env", "MANWIDTH=100", "man", "--warnings", "-l", dir_ / "page"});
    EXPECT_EQ(shown.err, "") << page;
    EXPECT_EQ(shown.code, 0);
  }

  agent::Command chosen_;
  CLI::App app_;
  Temp_Dir dir_;
  const std::string script_ = dir_ / "mtf-agent";
};

TEST_F(Pages, HaveEveryOption) {
  write_file(script_, agent::bash_completion(app_));
  expect_options(app_, "", agent::program_page(app_));
  for (const CLI::App* command : app_.get_subcommands(nullptr)) {
    expect_options(*command, command->get_name(), agent::command_page(app_, *command));
    EXPECT_NE(agent::program_page(app_).find("\\fB" + command->get_name() + "\\fR"),
              std::string::npos);
  }
}

TEST_F(Pages, OfferValues) {
  write_file(script_, agent::bash_completion(app_));
  std::filesystem::create_directory(dir_ / "dir one");
  write_file(dir_ / "file", "");
  const std::pair<const char*, const char*> offers[] = {
      {"mo", "mount\n"},
      {"full --compression z", "zstd\n"},
      {"full --storage ''", "dir one\n"},
      {"full --pre-action f", "file\n"},
      {"full --channels ''", ""},
      {"restore f", "file\n"},
      {"nonsense --", ""},
  };
  for (const auto& [words, expected] : offers) {
    const Output offered =
        bash("cd " + dir_.path() + "; source ./mtf-agent; COMP_WORDS=(mtf-agent " + words +
             "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _mtf_agent; "
             "((${#COMPREPLY[@]})) && printf '%s\\n' \"${COMPREPLY[@]}\"");
    EXPECT_EQ(offered.err, "") << words;
    EXPECT_EQ(offered.out, expected) << words;
  }
}

}  // namespace
